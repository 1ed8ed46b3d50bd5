// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

/// Returns when the thread or the process of that number has slept for a while, so that it has
/// come to where it waits, however busy the machine is.
inline void until_asleep(int number)
{
    std::string const path = "/proc/" + std::to_string(number) + "/stat"; // threads too
    for (int seen = 0; seen < 5;) {
        std::string line;
        std::getline(std::ifstream(path), line);
        // The state stands behind the name, which may hold anything.
        std::size_t const end = line.rfind(')');
        seen = end != std::string::npos && line.compare(end, 3, ") S") == 0 ? seen + 1 : 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}
