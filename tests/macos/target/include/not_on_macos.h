// Included before everything else by the check for Apple's target: names that the C headers used there declare and
// macOS does not have.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#undef SOCK_CLOEXEC
#undef SOCK_NONBLOCK
#undef MSG_NOSIGNAL
#undef F_SETPIPE_SZ
#undef F_GETPIPE_SZ
#undef O_PATH
#undef O_TMPFILE
#undef AT_EMPTY_PATH

#pragma GCC poison SOCK_CLOEXEC SOCK_NONBLOCK MSG_NOSIGNAL F_SETPIPE_SZ F_GETPIPE_SZ O_PATH O_TMPFILE AT_EMPTY_PATH
#pragma GCC poison accept4 clock_nanosleep copy_file_range dup3 epoll_create1 epoll_ctl epoll_wait eventfd execvpe
#pragma GCC poison get_current_dir_name gettid inotify_init1 memfd_create pipe2 posix_fallocate ppoll prctl
#pragma GCC poison secure_getenv sendfile64 signalfd sigtimedwait sigwaitinfo splice statx syncfs tee timerfd_create
#pragma GCC poison vmsplice posix_spawn_file_actions_addclosefrom_np
