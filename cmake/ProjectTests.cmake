# project_tests(TARGET [PROPERTIES ...]): each test of a GoogleTest program by its name. For the device the program becomes
# an image, one test that runs them all.
if(VIDEO_STREAM_FIRMWARE)
  set(test_image "${PROJECT_SOURCE_DIR}/firmware/test_image")
  set(test_image_arguments --host "${VIDEO_STREAM_HOST_BUILD}" --device "${PROJECT_BINARY_DIR}")
  function(project_tests target)
    target_link_libraries(${target} PRIVATE mps2_an505)
    add_test(NAME Device.${target} COMMAND ${test_image} run ${test_image_arguments} $<TARGET_FILE:${target}>)
    set_tests_properties(Device.${target} PROPERTIES COST 100) # begun first: they take the longest
    set_property(GLOBAL APPEND PROPERTY DEVICE_TEST_IMAGES $<TARGET_FILE:${target}>)
  endfunction()
  # Called when all are known: no test program of the host may be missing.
  function(project_tests_complete)
    get_property(images GLOBAL PROPERTY DEVICE_TEST_IMAGES)
    add_test(NAME Device.HasEveryTestOfTheHost COMMAND ${test_image} complete ${test_image_arguments} ${images})
  endfunction()
else()
  find_package(GTest REQUIRED)
  include(GoogleTest)
  function(project_tests target)
    gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 ${ARGN})
  endfunction()
endif()
