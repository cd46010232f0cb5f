#include "platform/stock/system/shm_record.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "base/fd.h"
#include "platform/descriptor_limit.h"

static std::optional<uid_t> g_owner; // of all files
static uid_t g_user = 0;             // that we are; root can only play another one

/* In place of the C library's. */
extern "C" int fstat(int fd, struct stat *out)
{
    const int result = fstatat(fd, "", out, AT_EMPTY_PATH);
    out->st_uid = g_owner.value_or(out->st_uid);
    return result;
}
extern "C" uid_t geteuid() noexcept
{
    return g_owner ? g_user : getuid();
}

namespace {

class ShmRecord : public testing::Test {
protected:
    ShmRecord() : m_name("/velomond_test_" + std::to_string(getpid())) { (void)shm_unlink(m_name.c_str()); }
    ~ShmRecord() override
    {
        g_owner.reset();
        (void)shm_unlink(m_name.c_str());
        (void)shm_unlink((m_name + kShmLockSuffix).c_str());
    }

    /* Leaves that much of a segment behind. */
    void leave(const TShmSegment &segment, size_t size)
    {
        const TFd fd(shm_open(m_name.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644));
        ASSERT_EQ(write(fd.get(), &segment, size), static_cast<ssize_t>(size));
    }
    /* Of the three, which are the same in each record. */
    int32_t get()
    {
        t_velomond_shm record = {-1, -1, -1};
        EXPECT_EQ(shm_record_get(m_name.c_str(), &record), 0);
        EXPECT_TRUE(record.reserved == record.disk_present && record.storage_setting == record.disk_present);
        return record.disk_present;
    }
    int set(int32_t value) { return shm_record_set(m_name.c_str(), {value, value, value}); }
    bool keeps(int32_t value) { return set(value) == 0 && get() == value; }

    const std::string m_name;
};

TEST_F(ShmRecord, RecoversFromWhatACrashLeft)
{
    EXPECT_EQ(get(), 0); // before the first record
    ASSERT_EQ(symlink("/nowhere", ("/dev/shm" + m_name).c_str()), 0);
    EXPECT_TRUE(keeps(2));
    leave({}, 1); // created, not enlarged
    EXPECT_EQ(get(), 0);
    EXPECT_TRUE(keeps(3));

    leave({kShmMagic, kShmVersion + 1, 8, {{9, 9, 9}, {9, 9, 9}}}, sizeof(TShmSegment));
    EXPECT_EQ(get(), 0);
    EXPECT_TRUE(keeps(4));
    const TFd fd(shm_open(m_name.c_str(), O_RDWR, 0));
    uint32_t words[11] = {};
    EXPECT_EQ(read(fd.get(), words, sizeof(words)), 40);
    EXPECT_EQ(std::vector(words, words + 10), (std::vector<uint32_t>{0x564d4f4e, 1, 1, 0, 0, 0, 0, 4, 4, 4}));

    leave({kShmMagic, kShmVersion, 6, {{5, 5, 5}, {6, 0, 4}}}, sizeof(TShmSegment)); // the 7th was being written
    EXPECT_EQ(get(), 5);
    EXPECT_TRUE(keeps(7));
}

TEST_F(ShmRecord, IsTakenFromItsOwnerOrRootOnly)
{
    ASSERT_EQ(set(1), 0);
    g_user = 1000;
    for (const uid_t owner : {1000U, 0U}) {
        g_owner = owner;
        EXPECT_EQ(get(), 1);
    }
    g_owner = 1001;
    t_velomond_shm record = {};
    EXPECT_EQ(shm_record_get(m_name.c_str(), &record), -EPERM);
    testing::internal::CaptureStderr();
    const rlim_t usual = limit_descriptors(3);
    EXPECT_EQ(set(2), -EMFILE);
    EXPECT_EQ(velomond_shm_get(&record), -EMFILE);
    limit_descriptors(usual);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "shared memory /velomond cannot be read: Too many open files\n");
    EXPECT_EQ(set(2), -EPERM); // those that it makes are another's as well
    g_owner.reset();
    EXPECT_EQ(shm_unlink((m_name + kShmLockSuffix).c_str()), -1); // it has made way
}

TEST_F(ShmRecord, AFolderInTheWayIsRemovedWhereItIsEmpty)
{
    for (const std::string &name : {m_name, m_name + ".lock"}) {
        const std::string folder = "/dev/shm" + name;
        (void)shm_unlink(name.c_str());
        ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
        EXPECT_TRUE(keeps(2));
        (void)shm_unlink(name.c_str());
        std::filesystem::create_directories(folder + "/kept");
        EXPECT_EQ(set(3), -ENOTEMPTY);
        ASSERT_EQ(rmdir((folder + "/kept").c_str()), 0);
        EXPECT_EQ(set(4), 0);
    }
}

TEST_F(ShmRecord, AWriterThatHangsStopsWritersOnly)
{
    ASSERT_EQ(set(1), 0);
    const TFd hanging(shm_open((m_name + kShmLockSuffix).c_str(), O_RDWR, 0));
    ASSERT_EQ(flock(hanging.get(), LOCK_EX), 0);
    EXPECT_EQ(set(2), -EBUSY);
    EXPECT_EQ(get(), 1);
}

TEST_F(ShmRecord, ReadersAndTwoWritersNeverMixRecords)
{
    ASSERT_EQ(set(1), 0);
    const auto write_all = [&](int32_t first) {
        for (int32_t i = 0; i < 2000; ++i)
            EXPECT_EQ(set(first + i), 0);
    };
    std::thread one(write_all, 10000), two(write_all, 20000);
    for (int32_t seen = 1; seen % 10000 != 1999; seen = get())
        EXPECT_GT(seen, 0);
    one.join();
    two.join();
    EXPECT_EQ(get() % 10000, 1999);
}

} // namespace
