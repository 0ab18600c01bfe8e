// What a child process after fork() must not inherit: locked mutexes and open sockets.
//
// The threads of the server do not exist in the child. What they hold there, nobody would ever give back.
#pragma once

#include <mutex>

namespace kvalo_view {

// A mutex that is free in the child, whoever held it in the parent.
class ForkMutex {
 public:
  ForkMutex();
  ~ForkMutex();
  ForkMutex(const ForkMutex&) = delete;
  ForkMutex& operator=(const ForkMutex&) = delete;

  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

// A socket that the child closes, so that it ends when the parent does. Programs that are started do not
// inherit it either.
class ParentSocket {
 public:
  explicit ParentSocket(int descriptor);
  ~ParentSocket();
  ParentSocket(const ParentSocket&) = delete;
  ParentSocket& operator=(const ParentSocket&) = delete;

 private:
  int descriptor_;
};

}  // namespace kvalo_view
