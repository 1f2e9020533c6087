# What `cmake --install` puts into a prefix: the libraries, their headers, and the package that
# find_package(video_stream) finds, with the targets video_stream::video_stream and, where the layers around the module
# were built, video_stream::rtc_client, video_stream::zeb_containers and video_stream::zeb_memory.
include(CMakePackageConfigHelpers)

set(installed_targets video_stream)
if(TARGET rtc_client)
  list(APPEND installed_targets rtc_client zeb_containers zeb_memory)
  install(DIRECTORY client/ DESTINATION include/video_stream/client FILES_MATCHING PATTERN "*.h")
endif()
install(DIRECTORY include/ DESTINATION include/video_stream FILES_MATCHING PATTERN "*.h")
install(TARGETS ${installed_targets} EXPORT video_stream-targets ARCHIVE DESTINATION lib)
install(EXPORT video_stream-targets NAMESPACE video_stream:: DESTINATION lib/cmake/video_stream)

configure_file(cmake/video_stream-config.cmake.in video_stream-config.cmake @ONLY)
set(package "${PROJECT_BINARY_DIR}/video_stream-config")
write_basic_package_version_file("${package}-version.cmake" COMPATIBILITY SameMinorVersion)
install(FILES "${package}.cmake" "${package}-version.cmake" DESTINATION lib/cmake/video_stream)
