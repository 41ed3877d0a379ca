#pragma once

#include <QtGlobal>

#ifdef Q_OS_UNIX
#include <csignal>
#include <sys/resource.h>
#endif

/// While it lives, no file of this process grows beyond 2000 bytes, as on a disk that fills up. On
/// Windows nothing happens.
struct SmallDisk {
#ifdef Q_OS_UNIX
    SmallDisk()
    {
        signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before);
        const rlimit small{2000, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
    }
    ~SmallDisk()
    {
        setrlimit(RLIMIT_FSIZE, &before);
    }
    rlimit before = {};
#endif
};
