// The event loop that sockets and timers live in.
#pragma once

#include <uv.h>

#include <fmt/format.h>

#include <memory>

#include "failure.h"

namespace vrc
{

// Closes a handle; its memory is given back when the loop has let go of it.
template <typename Handle> struct handle_closer {
    void operator()(Handle *handle) const
    {
        uv_close(reinterpret_cast<uv_handle_t *>(handle),
                 [](uv_handle_t *closed) { delete reinterpret_cast<Handle *>(closed); });
    }
};

template <typename Handle> using handle_ptr = std::unique_ptr<Handle, handle_closer<Handle>>;

class event_loop
{
  public:
    event_loop()
    {
        check(uv_loop_init(&loop_));
    }

    // Every handle_ptr must be gone by now.
    ~event_loop()
    {
        uv_run(&loop_, UV_RUN_DEFAULT);
        uv_loop_close(&loop_);
    }

    event_loop(const event_loop &) = delete;
    event_loop &operator=(const event_loop &) = delete;

    // A handle whose callbacks find `owner` in its data. Throws failure (no_access) when the system has none left.
    template <typename Handle> handle_ptr<Handle> make(int (*init)(uv_loop_t *, Handle *), void *owner)
    {
        auto handle = std::make_unique<Handle>();
        check(init(&loop_, handle.get()));
        handle->data = owner;
        return handle_ptr<Handle>(handle.release());
    }

    void run()
    {
        uv_run(&loop_, UV_RUN_DEFAULT);
    }

    // Makes `run` return when the current callback is done.
    void stop()
    {
        uv_stop(&loop_);
    }

  private:
    static void check(int error)
    {
        if (error < 0) {
            throw failure(exit_code::no_access, fmt::format("cannot wait for packets: {}", uv_strerror(error)));
        }
    }

    uv_loop_t loop_{};
};

} // namespace vrc
