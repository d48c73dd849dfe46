#pragma once

// A GLib main context served by a thread of its own, for the portal's D-Bus conversations.
// libportal and GDBus deliver their answers on the context that was current when a call
// started, so every call into them is made through run().

#include <functional>
#include <memory>
#include <thread>

typedef struct _GMainContext GMainContext;
typedef struct _GMainLoop GMainLoop;

namespace quillo::capture::portal {

class GlibLoop {
public:
    GlibLoop();
    ~GlibLoop();
    GlibLoop(const GlibLoop&) = delete;
    GlibLoop& operator=(const GlibLoop&) = delete;

    // Runs `work` on the loop's thread, soon; returns at once.
    void post(std::function<void()> work);
    // Runs `work` on the loop's thread and waits for it to return.
    void run(const std::function<void()>& work);

    GMainContext* context() const { return m_context; }

private:
    GMainContext* m_context = nullptr;
    GMainLoop* m_loop = nullptr;
    std::thread m_thread;
};

}  // namespace quillo::capture::portal
