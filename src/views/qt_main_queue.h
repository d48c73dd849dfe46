#pragma once

#include <QObject>

#include "base/main_queue.h"

namespace quillo::views {

// The main queue inside Qt's event loop: tasks posted from any thread run on the GUI thread in
// the order they were posted.
class QtMainQueue final : public MainQueue {
public:
    // Call on the GUI thread once the QApplication exists.
    QtMainQueue();

    void post(Task task) override;
    bool isCurrent() const override;

private:
    QObject m_context;  // lives on the GUI thread; queued calls run in its thread's loop
};

}  // namespace quillo::views
