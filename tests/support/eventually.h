#pragma once

#include <chrono>
#include <thread>

namespace quillo::testing {

// What a server or another program does arrives asynchronously: polls `done` every 20 ms for up
// to `seconds` (five unless said); true once it holds.
template <class Condition>
bool eventually(Condition done, int seconds = 5) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

}  // namespace quillo::testing
