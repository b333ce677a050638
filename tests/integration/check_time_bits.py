#!/usr/bin/env python3
"""Checks that programs for 32 bits ask the C library for its 64-bit forms of times and file sizes only.

Usage: check_time_bits.py FILE...

The C library for 32 bits has two functions for each that takes or gives a time or a file size, of which the one with
the plain name ends in 2038 or at 2 GiB. A plain name in a program means that one of its sources was compiled without
_TIME_BITS=64 and _FILE_OFFSET_BITS=64.
"""
import re
import subprocess
import sys

# The forms that have a time_t, a timespec, a timeval, a struct stat or an off_t in them.
PLAIN = {
    "adjtime", "aio_read", "aio_suspend", "aio_write", "clock_getres", "clock_gettime", "clock_nanosleep",
    "clock_settime", "cnd_timedwait", "creat", "ctime", "ctime_r", "difftime", "fallocate", "fopen", "freopen",
    "fseeko", "fstat", "fstatat", "fstatfs", "fstatvfs", "ftello", "ftruncate", "futimens", "futimes", "getitimer",
    "getrlimit", "getrusage", "gettimeofday", "glob", "gmtime", "gmtime_r", "localtime", "localtime_r", "lockf",
    "lseek", "lstat", "lutimes", "mkostemp", "mkstemp", "mktime", "mmap", "mq_timedreceive", "mq_timedsend",
    "mtx_timedlock", "nanosleep", "open", "openat", "ppoll", "pread", "preadv", "pselect", "pthread_clockjoin_np",
    "pthread_cond_clockwait", "pthread_cond_timedwait", "pthread_mutex_clocklock", "pthread_mutex_timedlock",
    "pthread_rwlock_clockrdlock", "pthread_rwlock_clockwrlock", "pthread_rwlock_timedrdlock",
    "pthread_rwlock_timedwrlock", "pthread_timedjoin_np", "pwrite", "pwritev", "readdir", "recvmmsg", "scandir",
    "select", "sem_clockwait", "sem_timedwait", "sendfile", "setitimer", "setrlimit", "settimeofday", "sigtimedwait",
    "stat", "statfs", "statvfs", "thrd_sleep", "time", "timegm", "timer_gettime", "timer_settime", "timerfd_gettime",
    "timerfd_settime", "timespec_get", "tmpfile", "truncate", "utime", "utimensat", "utimes", "wait3", "wait4",
}


def imports(program: str) -> set[str]:
    """Names that the program takes from the C library, without versions."""
    listing = subprocess.run(["nm", "--dynamic", "--undefined-only", program], check=True, capture_output=True,
                             text=True).stdout
    return {re.split("@", line.split()[-1])[0] for line in listing.splitlines() if "GLIBC_" in line}


def main() -> int:
    failed = False
    for program in sys.argv[1:]:
        names = imports(program)
        if not names:
            print(f"{program}: takes nothing from the C library")
            failed = True
        for name in sorted(names & PLAIN):
            print(f"{program}: {name} ends in 2038 or at 2 GiB")
            failed = True
        if not names & PLAIN:
            print(f"{program}: {len(names)} functions, of them {sum('64' in name for name in names)} in 64-bit form")
    return 1 if failed or len(sys.argv) < 2 else 0


if __name__ == "__main__":
    sys.exit(main())
