// What the FFT library asks of a program that brings its own threads: the names of its locks. It includes
// this file by this name; its parallel loops are in dsp_dft.cpp.
#pragma once

#include <condition_variable>
#include <mutex>

namespace ducc0::detail_threading {

using Mutex = std::mutex;
using UniqueLock = std::unique_lock<std::mutex>;
using LockGuard = std::lock_guard<std::mutex>;
using CondVar = std::condition_variable;

}  // namespace ducc0::detail_threading
