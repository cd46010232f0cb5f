#include "platform/ostra.h"

#include <cerrno>
#include <limits>

#include "base/text.h"
#include "platform/logging.h"
#include "platform/stock/config/ini_file.h"
#include "platform/stock/storage/folder_size.h"

namespace {

constexpr const char *kProductFile = "/tarn/etc/config/OstraPro.conf";
constexpr uint64_t kMb = uint64_t{1024} * 1024;

/* Reads one key of the product's file. Returns 0, -ENOENT when it is not set, or -errno. */
int product_value(const char *section, const char *key, std::string *out)
{
    TIni ini;
    if (const int result = ini_load(kProductFile, &ini); result != 0)
        return result;
    std::string value;
    const int result = ini.get(section, key, &value);
    if (result == 1 || (result == 0 && value.empty()))
        return -ENOENT;
    if (result == 0)
        *out = std::move(value);
    return result;
}

} // namespace

int COstraStorage::create_storage_setting()
{
    TIni ini;
    const int result = ini_load(kProductFile, &ini);
    if (result != 0)
        log_Debug("storage settings of %s: %s", kProductFile, error_text(-result).c_str());
    m_open = result == 0;
    return result;
}

int COstraStorage::get_storage_flag(int *flag)
{
    if (!m_open)
        return -EBADF; // logged when opening failed
    std::string text;
    long long value = 0;
    int result = product_value("Storage", "flag", &text);
    if (result == 0 && (!text_to_number(text, &value) || value < std::numeric_limits<int>::min() ||
                        value > std::numeric_limits<int>::max()))
        result = -EINVAL;
    if (result != 0) {
        log_Debug("storage flag [%s] of %s: %s", text.c_str(), kProductFile, error_text(-result).c_str());
        return result;
    }
    *flag = static_cast<int>(value);
    return 0;
}

void COstraStorage::destroy_storage_setting()
{
    m_open = false;
}

int CDBSize::init()
{
    std::string folder;
    return product_value("Database", "path", &folder);
}

int CDBSize::check_database_size(db_size_m &size)
{
    std::string folder;
    TFolderSize measured;
    int result = product_value("Database", "path", &folder);
    if (result == 0)
        result = folder[0] == '/' ? folder_measure(folder, &measured) : -EINVAL;
    if (result != 0) {
        log_Debug("size of the database folder [%s]: %s", folder.c_str(), error_text(-result).c_str());
        return result;
    }
    size = {measured.files, measured.folders, measured.largest_bytes / kMb, measured.bytes / kMb};
    return 0;
}
