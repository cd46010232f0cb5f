#pragma once

#include <map>
#include <string>
#include <vector>

#include "base/mutex.h"

/* Numbers of the places where disks are plugged in, from 1. They are given in the
 * order in which the ports are first listed and kept for good: a disk that is
 * pulled renames no other, and its port gives its number to the next one in it.
 * Any thread may call. */
class TDiskNumbers {
public:
    /* The number of each port, new ones behind all others. */
    std::vector<int> of(const std::vector<std::string> &ports);

private:
    TMutex m_lock;
    std::map<std::string, int> m_numbers GUARDED_BY(m_lock);
};
