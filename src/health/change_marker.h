#pragma once

#include <string>

#include "base/fd.h"

/* A file that another service creates to report a change, and that is removed when it is
 * seen. For one thread. */
class TChangeMarker {
public:
    explicit TChangeMarker(std::string path);

    /* Whether the file exists; it is removed then. */
    bool take();

    /* Whether it may exist; never blocks. */
    bool is_due() const;

private:
    void watch();

    std::string m_path;
    TFd m_notify;               // readable once its folder has changed; without it, it is always due
    bool m_is_unchecked = true; // it may have been there before, or it could not be removed
};
