// The widget tests' entry point: one QApplication on the offscreen platform for every case.

#include <QApplication>
#include <QDir>
#include <gtest/gtest.h>

#include "base/main_queue.h"
#include "views/qt_main_queue.h"

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    testing::InitGoogleTest(&argc, argv);
    QApplication application(argc, argv);
    // Tests that take pictures of the views write them here, for a person to look at.
    if (qEnvironmentVariableIsEmpty("QUILLO_VIEWS_SHOTS")) {
        qputenv("QUILLO_VIEWS_SHOTS", QUILLO_VIEWS_SHOTS_DIR);
    }
    QDir().mkpath(qEnvironmentVariable("QUILLO_VIEWS_SHOTS"));
    quillo::views::QtMainQueue mainQueue;
    quillo::MainQueue::install(&mainQueue);
    int result = RUN_ALL_TESTS();
    quillo::MainQueue::install(nullptr);
    return result;
}
