#pragma once

#include <map>
#include <string>
#include <vector>

#include "base/mutex.h"

/* Numbers of the ports of disks, from 1. They are assigned in the order in which the ports are first listed and never
 * change: removing a disk renumbers no other, and the next disk in its port gets the same number. Any thread may
 * call. */
class TDiskNumbers {
public:
    /* The number of each port; new ports are numbered after all others. */
    std::vector<int> of(const std::vector<std::string> &ports);

private:
    TMutex m_lock;
    std::map<std::string, int> m_numbers GUARDED_BY(m_lock);
};
