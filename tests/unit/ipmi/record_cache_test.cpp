#include "bmc/ipmi/record_cache.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "record_builder.h"
#include "tests/support/file.h"
#include "tests/support/temp_folder.h"

namespace {

using bmc::ipmi::BoardRecords;
using bmc::ipmi::DecodeCacheFile;
using bmc::ipmi::EncodeCacheFile;
using bmc::ipmi::RecordCache;
using bmc::ipmi::RecordOrigin_e;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string c_place = "10.0.0.11:623 0x20/0";

BoardRecords Some() {
    return {RecordOrigin_e::device, {1, 2, 0, 255}, {FullRecord().Bytes(), CompactRecord().Bytes(), {}}};
}

class RecordCacheTest : public testing::Test {
protected:
    RecordCache Make(const std::string& folder) {
        return {folder, [this](qstd::LogLevel_e, const std::string& text) { m_log.push_back(text); }};
    }

    test::TempFolder m_folder;
    std::vector<std::string> m_log;
};

TEST_F(RecordCacheTest, Kept_GivenBack) {
    RecordCache cache = Make(m_folder.Path("cache"));
    EXPECT_FALSE(cache.Load("io/1", c_place));
    cache.Store("io/1", c_place, Some());
    EXPECT_EQ(cache.Load("io/1", c_place), Some());
    BoardRecords other = Some();
    other.records.pop_back();
    cache.Store("io/1", c_place, other);
    EXPECT_EQ(cache.Load("io/1", c_place), other) << "in place of the former one";
    EXPECT_THAT(m_log, IsEmpty());
}

TEST_F(RecordCacheTest, AFileForEachBoard_ForTheServiceAlone) {
    RecordCache cache = Make(m_folder.Path());
    cache.Store("io/1", c_place, Some());
    cache.Store("os/0", c_place, Some());
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path())) {
        names.push_back(entry.path().filename().string());
        struct stat status {};
        ASSERT_EQ(::stat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0600U);
    }
    EXPECT_THAT(names, testing::UnorderedElementsAre("io_1.sdr", "os_0.sdr"));
}

TEST_F(RecordCacheTest, OfAnotherPlace_NotGiven) {
    RecordCache cache = Make(m_folder.Path());
    cache.Store("io/1", c_place, Some());
    EXPECT_FALSE(cache.Load("io/1", "10.0.0.12:623 0x20/0"));
    EXPECT_FALSE(cache.Load("io/2", c_place));
}

TEST_F(RecordCacheTest, CannotBeWritten_ToldOnce) {
    test::WriteFile(m_folder.Path("file"), "");
    RecordCache cache = Make(m_folder.Path("file"));
    cache.Store("io/1", c_place, Some());
    cache.Store("io/1", c_place, Some());
    EXPECT_FALSE(cache.Load("io/1", c_place));
    EXPECT_THAT(m_log, ElementsAre(HasSubstr("Sensor records cannot be kept in " + m_folder.Path("file/io_1.sdr") +
                                             ": Not a directory")));
}

TEST_F(RecordCacheTest, ReadOnly_GivesWhatIsKeptAndMakesNothing) {
    Make(m_folder.Path("cache")).Store("io/1", c_place, Some());
    const auto log = [this](qstd::LogLevel_e, const std::string& text) { m_log.push_back(text); };
    RecordCache cache(m_folder.Path("cache"), log, true);
    EXPECT_EQ(cache.Load("io/1", c_place), Some());
    cache.Store("io/1", c_place, {});
    cache.Store("io/2", c_place, Some());
    EXPECT_EQ(cache.Load("io/1", c_place), Some());
    EXPECT_FALSE(cache.Load("io/2", c_place));
    RecordCache(m_folder.Path("other"), log, true).Store("io/1", c_place, Some());
    EXPECT_FALSE(std::filesystem::exists(m_folder.Path("other")));
    EXPECT_THAT(m_log, IsEmpty());
}

TEST_F(RecordCacheTest, NoFolder_NothingKept) {
    RecordCache cache = Make("");
    cache.Store("io/1", c_place, Some());
    EXPECT_FALSE(cache.Load("io/1", c_place));
    EXPECT_THAT(m_log, IsEmpty());
}

TEST_F(RecordCacheTest, NotARegularFile_NotRead) {
    RecordCache cache = Make(m_folder.Path());
    test::WriteFile(m_folder.Path("target"), EncodeCacheFile(c_place, Some()));
    std::filesystem::create_symlink(m_folder.Path("target"), m_folder.Path("io_1.sdr"));
    std::filesystem::create_directory(m_folder.Path("io_2.sdr"));
    ASSERT_EQ(::mkfifo(m_folder.Path("io_3.sdr").c_str(), 0600), 0);
    for (const char* label : {"io/1", "io/2", "io/3"}) {
        EXPECT_FALSE(cache.Load(label, c_place)) << label;
    }
}

TEST_F(RecordCacheTest, TooLarge_NotRead) {
    RecordCache cache = Make(m_folder.Path());
    cache.Store("io/1", c_place, Some());
    std::filesystem::resize_file(m_folder.Path("io_1.sdr"), 1ULL << 40);
    EXPECT_FALSE(cache.Load("io/1", c_place));
}

TEST(CacheFile, Damaged_None) {
    const std::string whole = EncodeCacheFile(c_place, Some());
    ASSERT_EQ(DecodeCacheFile(whole, c_place), Some());
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(DecodeCacheFile(whole.substr(0, size), c_place)) << size;
    }
    for (std::size_t i = 0; i < whole.size(); ++i) {
        std::string changed = whole;
        changed[i] = static_cast<char>(changed[i] ^ 0x10);
        EXPECT_FALSE(DecodeCacheFile(changed, c_place)) << i;
    }
    EXPECT_FALSE(DecodeCacheFile(whole + "x", c_place));
}

TEST(CacheFile, ExactBytes) {
    EXPECT_EQ(EncodeCacheFile("p", {RecordOrigin_e::board, {7}, {{8, 9}}}),
              std::string("zelkor-sdr\n\x01\x01\0p\x02\x01\0\x07\x01\0\x02\0\x08\x09\xad\x3c\x28\x6c", 29));
}

}  // namespace
