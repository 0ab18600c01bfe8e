// Handlers that run around fork().
#include "view/fork.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace kvalo_view {

namespace {

// Guards the lists; held over fork() itself, so that the child finds them whole.
struct Registry {
  std::mutex guard;
  std::vector<ForkMutex*> mutexes;
  std::vector<int> sockets;
};

void before();
void in_parent();
void in_child();

// Never destroyed: a child may be made while the process ends.
Registry& registry() {
  static Registry* const one = [] {
    ::pthread_atfork(before, in_parent, in_child);
    return new Registry;
  }();
  return *one;
}

void before() {
  registry().guard.lock();
  for (ForkMutex* mutex : registry().mutexes) mutex->lock();
}

void in_parent() {
  for (ForkMutex* mutex : registry().mutexes) mutex->unlock();
  registry().guard.unlock();
}

void in_child() {
  for (const int descriptor : registry().sockets) ::close(descriptor);
  registry().sockets.clear();
  in_parent();
}

}  // namespace

ForkMutex::ForkMutex() {
  const std::lock_guard lock(registry().guard);
  registry().mutexes.push_back(this);
}

ForkMutex::~ForkMutex() {
  const std::lock_guard lock(registry().guard);
  std::erase(registry().mutexes, this);
}

ParentSocket::ParentSocket(int descriptor) : descriptor_(descriptor) {
  ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  const std::lock_guard lock(registry().guard);
  registry().sockets.push_back(descriptor);
}

ParentSocket::~ParentSocket() {
  const std::lock_guard lock(registry().guard);
  auto& sockets = registry().sockets;
  const auto found = std::find(sockets.begin(), sockets.end(), descriptor_);
  if (found != sockets.end()) sockets.erase(found);
}

}  // namespace kvalo_view
