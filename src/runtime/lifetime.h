// What the stateful parts of the runtime do at its start, at its end and at a fork of the process.
//
// Locks are taken in one order: tags, store, log.
#pragma once

namespace mirn3 {

namespace tag {
bool has_unsaved();
void clear() noexcept;  // forgets what is in memory; it is read again from the store on next use
void before_fork();
void after_fork(bool child);
}  // namespace tag

namespace store {
void close() noexcept;
void before_fork();
void after_fork();
}  // namespace store

namespace log {
void before_fork();
void after_fork();
}  // namespace log

}  // namespace mirn3
