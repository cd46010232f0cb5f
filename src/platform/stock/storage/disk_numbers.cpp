#include "platform/stock/storage/disk_numbers.h"

std::vector<int> TDiskNumbers::of(const std::vector<std::string> &ports)
{
    std::vector<int> numbers;
    numbers.reserve(ports.size());
    const TLock guard(m_lock);
    for (const std::string &port : ports)
        numbers.push_back(m_numbers.try_emplace(port, static_cast<int>(m_numbers.size()) + 1).first->second);
    return numbers;
}
