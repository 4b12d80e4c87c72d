#pragma once

namespace clipworks::app {

/// Takes from this process, for good, the calls to the kernel that editing a clip never needs and that a decoder which
/// has been taken over would: sockets, other programs and processes, tracing, mounting, namespaces, keys, performance
/// counters, BPF, io_uring, memory that no limit counts, changes of modes and owners by path. What is denied fails with
/// `EPERM`. A list of what is denied, not of what is allowed: that breaks with every version of the C library.
/// `usesSoundServer` leaves Unix sockets and shared memory. Before there are other threads, after
/// `PR_SET_NO_NEW_PRIVS`. Returns a value of `errno`, 0 for success.
[[nodiscard]] int restrictSystemCalls(bool usesSoundServer);

}  // namespace clipworks::app
