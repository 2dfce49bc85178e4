// Reed-Solomon recovery data over a file region: damage within the share is
// found and rebuilt, damage beyond it is named, and a damaged record still
// serves as long as one copy of its table checks out.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "RecoveryCode.h"

namespace {

using namespace engine::recovery;
namespace fs = std::filesystem;

// A file laid out as an archive would be: a prefix, the protected region,
// then the record.
class RecoveryFile {
public:
    RecoveryFile(std::size_t regionSize, unsigned percent, std::uint32_t seed = 1) {
        char name[] = "/tmp/recovery-XXXXXX";
        fd_ = mkstemp(name);
        path_ = name;
        std::mt19937 random(seed);
        original_.resize(kPrefix + regionSize);
        for (auto &byte : original_) byte = static_cast<std::uint8_t>(random());
        EXPECT_EQ(pwrite(fd_, original_.data(), original_.size(), 0),
                  static_cast<ssize_t>(original_.size()));
        EXPECT_EQ(WriteRecord(Region(), percent, fd_, kPrefix + regionSize, recordSize_),
                  kEngineOK);
        EXPECT_EQ(recordSize_, RecordSize(regionSize, percent));
    }
    ~RecoveryFile() {
        close(fd_);
        fs::remove(path_);
    }
    FileRegion Region() const { return {fd_, kPrefix, original_.size() - kPrefix}; }
    FileRegion Record() const { return {fd_, original_.size(), recordSize_}; }
    // Flips `count` bytes from `offset` of the region (or of the record).
    void Damage(std::uint64_t offset, std::size_t count, bool inRecord = false) {
        std::uint64_t at = (inRecord ? Record().offset : kPrefix) + offset;
        std::vector<std::uint8_t> bytes(count);
        ASSERT_EQ(pread(fd_, bytes.data(), count, static_cast<off_t>(at)),
                  static_cast<ssize_t>(count));
        for (auto &byte : bytes) byte ^= 0x5a;
        ASSERT_EQ(pwrite(fd_, bytes.data(), count, static_cast<off_t>(at)),
                  static_cast<ssize_t>(count));
    }
    bool RegionIntact() const {
        std::vector<std::uint8_t> now(original_.size());
        return pread(fd_, now.data(), now.size(), 0) == static_cast<ssize_t>(now.size()) &&
               now == original_;
    }
    std::uint64_t RegionSize() const { return original_.size() - kPrefix; }

private:
    static constexpr std::uint64_t kPrefix = 100;
    int fd_ = -1;
    std::string path_;
    std::vector<std::uint8_t> original_;
    std::uint64_t recordSize_ = 0;
};

TEST(RecoveryCodeTest, DamageWithinTheShareIsFoundAndRebuilt) {
    struct Case {
        std::size_t size;
        unsigned percent;
    };
    // Tiny, one stripe of small shards, not a multiple of the shard size,
    // several stripes, the most parity there is.
    for (Case c :
         {Case{1, 1}, Case{1000, 15}, Case{777'777, 5}, Case{20'000'000, 4}, Case{50'000, 50}}) {
        SCOPED_TRACE(c.size);
        RecoveryFile file(c.size, c.percent, static_cast<std::uint32_t>(c.size));
        Report report;
        ASSERT_EQ(CheckRegion(file.Region(), file.Record(), report), kEngineOK);
        EXPECT_TRUE(report.Clean());

        // The first byte, the last byte, and a run in the middle a quarter of
        // the share long.
        std::uint64_t size = file.RegionSize();
        file.Damage(0, 1);
        if (size > 1) file.Damage(size - 1, 1);
        if (size > 1000) file.Damage(size / 2, static_cast<std::size_t>(size * c.percent / 400));
        ASSERT_EQ(CheckRegion(file.Region(), file.Record(), report), kEngineOK);
        ASSERT_FALSE(report.damaged.empty());
        EXPECT_EQ(report.damaged.front().offset, 0u);
        EXPECT_EQ(report.damaged.back().offset + report.damaged.back().size, size);
        EXPECT_TRUE(report.unrepairable.empty());
        EXPECT_FALSE(file.RegionIntact());

        EXPECT_EQ(RepairRegion(file.Region(), file.Record(), report), kEngineOK);
        EXPECT_TRUE(file.RegionIntact());
        ASSERT_EQ(CheckRegion(file.Region(), file.Record(), report), kEngineOK);
        EXPECT_TRUE(report.Clean());
    }
}

TEST(RecoveryCodeTest, DamageBeyondTheShareIsNamedAndTheRestStillRebuilt) {
    RecoveryFile file(2'000'000, 2);
    std::uint64_t size = file.RegionSize();
    // A tenth of the region in one run: far beyond 2 %.
    file.Damage(size / 4, static_cast<std::size_t>(size / 10));
    Report report;
    EXPECT_EQ(RepairRegion(file.Region(), file.Record(), report), kEngineNotRecoverable);
    ASSERT_FALSE(report.unrepairable.empty());
    for (const Damage &d : report.unrepairable) {
        EXPECT_LT(d.offset, size / 4 + size / 10);
        EXPECT_GT(d.offset + d.size, size / 4);
    }
    // Whatever was rebuilt is no longer reported as damaged.
    Report after;
    ASSERT_EQ(CheckRegion(file.Region(), file.Record(), after), kEngineOK);
    EXPECT_EQ(after.damaged, report.unrepairable);
}

TEST(RecoveryCodeTest, TruncatedRegionIsRebuiltToItsFullLength) {
    RecoveryFile file(500'000, 5);
    FileRegion shorter = file.Region();
    // Pretend the region's end is gone: a copy that ends early.
    char name[] = "/tmp/recovery-copy-XXXXXX";
    int copy = mkstemp(name);
    std::vector<std::uint8_t> bytes(shorter.offset + shorter.size - 1000);
    ASSERT_EQ(pread(shorter.fd, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    ASSERT_EQ(pwrite(copy, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    Report report;
    EXPECT_EQ(RepairRegion({copy, shorter.offset, shorter.size}, file.Record(), report), kEngineOK);
    std::vector<std::uint8_t> repaired(shorter.offset + shorter.size), original(repaired.size());
    EXPECT_EQ(pread(copy, repaired.data(), repaired.size(), 0),
              static_cast<ssize_t>(repaired.size()));
    EXPECT_EQ(pread(shorter.fd, original.data(), original.size(), 0),
              static_cast<ssize_t>(original.size()));
    EXPECT_EQ(repaired, original);
    close(copy);
    fs::remove(name);
}

TEST(RecoveryCodeTest, DamagedRecordServesWhileOneTableCopyChecksOut) {
    RecoveryFile file(400'000, 10);
    FileRegion record = file.Record();
    file.Damage(5000, 1);
    // The first copy's header, and one parity shard.
    file.Damage(20, 4, true);
    file.Damage(record.size / 2, 1, true);
    Report report;
    EXPECT_EQ(RepairRegion(file.Region(), record, report), kEngineOK);
    EXPECT_TRUE(report.recordDamaged);
    EXPECT_TRUE(file.RegionIntact());

    // Both copies gone: the record cannot be used at all.
    file.Damage(record.size - 8, 1, true);
    EXPECT_EQ(CheckRegion(file.Region(), record, report), kEngineRecoveryDataDamaged);
    // A record of another region's size is refused the same way.
    RecoveryFile other(1000, 10);
    FileRegion wrongSize = other.Region();
    wrongSize.size += 1;
    EXPECT_EQ(CheckRegion(wrongSize, other.Record(), report), kEngineRecoveryDataDamaged);
}

TEST(RecoveryCodeTest, RecordSizeFollowsThePercent) {
    EXPECT_EQ(RecordSize(1000, 0), 0u);
    EXPECT_EQ(RecordSize(1000, 51), 0u);
    std::uint64_t region = 100'000'000;
    std::uint64_t one = RecordSize(region, 1), half = RecordSize(region, 50);
    EXPECT_GT(one, region / 100);
    EXPECT_LT(one, region / 100 + region / 500);
    EXPECT_GT(half, region / 2);
    EXPECT_LT(half, region / 2 + region / 50);
}

}  // namespace
