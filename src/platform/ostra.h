#pragma once

#include <cstdint>

/* The surveillance service's storage settings: one flag. */
class COstraStorage {
public:
    int create_storage_setting();    // opens; 0, else negative
    int get_storage_flag(int *flag); // 0; negative, with *flag unchanged, when it is not set
    void destroy_storage_setting();  // releases; harmless when not open

private:
    bool m_open = false;
};

/* Sizes of the surveillance database in MB. The last one is the total. */
struct db_size_m {
    uint64_t files = 0;
    uint64_t folders = 0;
    uint64_t largest_mb = 0;
    uint64_t total_mb = 0;
};

/* Measures the surveillance database. */
class CDBSize {
public:
    int init();                               // 0, else negative
    int check_database_size(db_size_m &size); // 0; negative, with size unchanged, on failure
};
