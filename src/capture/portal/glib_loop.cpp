// The portal thread: one GMainContext pushed as the thread's default, so async GIO calls made
// on it answer on it.

#include "glib_loop.h"

#include <future>
#include <glib.h>
#include <pthread.h>

namespace quillo::capture::portal {

namespace {

gboolean runPosted(gpointer data) {
    auto* work = static_cast<std::function<void()>*>(data);
    (*work)();
    return G_SOURCE_REMOVE;
}

void deletePosted(gpointer data) { delete static_cast<std::function<void()>*>(data); }

}  // namespace

GlibLoop::GlibLoop() {
    m_context = g_main_context_new();
    m_loop = g_main_loop_new(m_context, FALSE);
    std::promise<void> running;
    auto ready = running.get_future();
    m_thread = std::thread([this, &running] {
        pthread_setname_np(pthread_self(), "quillo.portal");
        g_main_context_push_thread_default(m_context);
        g_main_context_invoke(
            m_context,
            [](gpointer promise) {
                static_cast<std::promise<void>*>(promise)->set_value();
                return G_SOURCE_REMOVE;
            },
            &running);
        g_main_loop_run(m_loop);
        // Answers still queued (a cancelled call's callback) run before the context goes.
        while (g_main_context_iteration(m_context, FALSE)) {
        }
        g_main_context_pop_thread_default(m_context);
    });
    ready.wait();
}

GlibLoop::~GlibLoop() {
    post([loop = m_loop] { g_main_loop_quit(loop); });
    if (std::this_thread::get_id() == m_thread.get_id()) {
        m_thread.detach();  // the last owner let go in one of the loop's own callbacks
        return;
    }
    m_thread.join();
    g_main_loop_unref(m_loop);
    g_main_context_unref(m_context);
}

void GlibLoop::post(std::function<void()> work) {
    g_main_context_invoke_full(m_context, G_PRIORITY_DEFAULT, runPosted,
                               new std::function<void()>(std::move(work)), deletePosted);
}

void GlibLoop::run(const std::function<void()>& work) {
    if (std::this_thread::get_id() == m_thread.get_id()) {
        work();
        return;
    }
    std::promise<void> done;
    auto finished = done.get_future();
    post([&] {
        work();
        done.set_value();
    });
    finished.wait();
}

}  // namespace quillo::capture::portal
