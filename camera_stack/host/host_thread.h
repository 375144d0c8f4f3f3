// Host implementation of the framework's thread scheduling helpers.
//
// Policy 0 (SCHED_OTHER) with a priority sets the calling thread's nice value
// (setpriority on the thread id); the real-time policies 1 (SCHED_FIFO) and
// 2 (SCHED_RR) set the thread's real-time priority. The read-back reports what
// the system really holds for the thread: its policy, and its nice value or
// real-time priority. Raising priority (a negative nice value, a real-time
// policy) needs privileges; an unprivileged request simply fails, which shows
// in the read-back. Both act on the calling thread and are thread-safe.
#pragma once
