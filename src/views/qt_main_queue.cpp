#include "qt_main_queue.h"

#include <exception>

#include <QThread>

#include "base/log.h"

namespace quillo::views {

QtMainQueue::QtMainQueue() = default;

void QtMainQueue::post(Task task) {
    QMetaObject::invokeMethod(
        &m_context,
        [task = std::move(task)] {
            try {
                task();
            } catch (const std::exception& error) {
                logError("app.quillo.main",
                         std::string("A main queue task failed: ") + error.what());
            }
        },
        Qt::QueuedConnection);
}

bool QtMainQueue::isCurrent() const { return QThread::currentThread() == m_context.thread(); }

}  // namespace quillo::views
