#include "RecoveryCode.h"

#include <isa-l.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace engine::recovery {

namespace {

constexpr std::size_t kHashSize = 16;
constexpr std::size_t kHeaderSize = 64;
constexpr std::uint32_t kMostDataPerStripe = 100;
constexpr std::uint32_t kLeastShard = 64;
constexpr std::uint32_t kMostShard = 64 * 1024;
constexpr char kMagic[8] = {'V', 'n', 'k', 'R', 'c', 'v', 'r', '1'};
constexpr std::uint32_t kVersion = 1;

using Hash = std::array<std::uint8_t, kHashSize>;

// How a region of a given size is cut; all of it follows from the region's
// size and the percent.
struct Geometry {
    std::uint64_t regionSize = 0;
    std::uint32_t percent = 0;
    std::uint32_t shardSize = kLeastShard;
    std::uint64_t dataShards = 0;  // N
    std::uint32_t stripes = 0;     // S
    std::uint32_t dataPerStripe = 0;
    std::uint32_t parityPerStripe = 0;

    std::uint64_t ParityShards() const { return std::uint64_t{stripes} * parityPerStripe; }
    std::uint64_t TableSize() const { return (dataShards + ParityShards()) * kHashSize; }
    std::uint64_t CopySize() const { return kHeaderSize + TableSize(); }
    std::uint64_t ParityOffset() const { return CopySize(); }
    std::uint64_t RecordSize() const { return 2 * CopySize() + ParityShards() * shardSize; }
    // The global index of the i-th data shard of a stripe (dealt round-robin).
    std::uint64_t DataShard(std::uint32_t stripe, std::uint32_t i) const {
        return stripe + std::uint64_t{i} * stripes;
    }
    std::uint64_t ParityIndex(std::uint32_t stripe, std::uint32_t p) const {
        return dataShards + std::uint64_t{stripe} * parityPerStripe + p;
    }
    bool operator==(const Geometry &) const = default;
};

Geometry GeometryFor(std::uint64_t regionSize, unsigned percent) {
    Geometry g;
    g.regionSize = regionSize;
    g.percent = percent;
    if (regionSize == 0) return g;
    std::uint64_t perShard = (regionSize + kMostDataPerStripe - 1) / kMostDataPerStripe;
    perShard = (perShard + kLeastShard - 1) / kLeastShard * kLeastShard;
    g.shardSize =
        static_cast<std::uint32_t>(std::clamp<std::uint64_t>(perShard, kLeastShard, kMostShard));
    g.dataShards = (regionSize + g.shardSize - 1) / g.shardSize;
    g.dataPerStripe =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(kMostDataPerStripe, g.dataShards));
    g.stripes = static_cast<std::uint32_t>((g.dataShards + g.dataPerStripe - 1) / g.dataPerStripe);
    // Spread the shards evenly, so the last stripe is not mostly padding.
    g.dataPerStripe = static_cast<std::uint32_t>((g.dataShards + g.stripes - 1) / g.stripes);
    g.parityPerStripe = std::max<std::uint32_t>(1, (g.dataPerStripe * percent + 99) / 100);
    return g;
}

Hash HashOf(const std::uint8_t *data, std::size_t size) {
    std::array<std::uint8_t, EVP_MAX_MD_SIZE> full{};
    unsigned int length = 0;
    EVP_Digest(data, size, full.data(), &length, EVP_sha256(), nullptr);
    Hash hash{};
    std::copy_n(full.begin(), kHashSize, hash.begin());
    return hash;
}

void Put32(std::uint8_t *out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) out[i] = static_cast<std::uint8_t>(value >> (8 * i));
}
void Put64(std::uint8_t *out, std::uint64_t value) {
    for (int i = 0; i < 8; ++i) out[i] = static_cast<std::uint8_t>(value >> (8 * i));
}
std::uint32_t Get32(const std::uint8_t *in) {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value |= static_cast<std::uint32_t>(in[i]) << (8 * i);
    return value;
}
std::uint64_t Get64(const std::uint8_t *in) {
    std::uint64_t value = 0;
    for (int i = 0; i < 8; ++i) value |= static_cast<std::uint64_t>(in[i]) << (8 * i);
    return value;
}

// Reads up to `size` bytes at `offset`; what the file lacks reads as zeros
// (a truncated region is damage to find, not an error).
Result ReadPadded(int fd, std::uint64_t offset, std::uint8_t *out, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        ssize_t got = pread(fd, out + done, size - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return LastErrno();
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    std::memset(out + done, 0, size - done);
    return kEngineOK;
}

Result WriteAll(int fd, std::uint64_t offset, const std::uint8_t *data, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        ssize_t put = pwrite(fd, data + done, size - done, static_cast<off_t>(offset + done));
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return LastErrno();
        done += static_cast<std::size_t>(put);
    }
    return kEngineOK;
}

// One stripe's shards in memory: data rows first, then parity rows.
class Stripe {
public:
    explicit Stripe(const Geometry &g)
        : g_(g),
          buffer_(std::size_t{g.dataPerStripe + g.parityPerStripe} * g.shardSize),
          rows_(g.dataPerStripe + g.parityPerStripe) {
        for (std::size_t r = 0; r < rows_.size(); ++r) rows_[r] = Row(r);
    }
    std::uint8_t *Row(std::size_t r) { return buffer_.data() + r * g_.shardSize; }
    std::uint8_t **Rows() { return rows_.data(); }
    std::uint8_t **ParityRows() { return rows_.data() + g_.dataPerStripe; }

    // The bytes of a data shard in the region (the last one is short).
    std::size_t ShardLength(std::uint64_t shard) const {
        std::uint64_t start = shard * g_.shardSize;
        return static_cast<std::size_t>(
            std::min<std::uint64_t>(g_.shardSize, g_.regionSize - start));
    }
    bool Real(std::uint64_t shard) const { return shard < g_.dataShards; }

    // Reads the stripe's data rows; shards past the region are zeros.
    Result ReadData(const FileRegion &region, std::uint32_t stripe) {
        for (std::uint32_t i = 0; i < g_.dataPerStripe; ++i) {
            std::uint64_t shard = g_.DataShard(stripe, i);
            std::memset(Row(i), 0, g_.shardSize);
            if (!Real(shard)) continue;
            if (Result r = ReadPadded(region.fd, region.offset + shard * g_.shardSize, Row(i),
                                      ShardLength(shard)))
                return r;
        }
        return kEngineOK;
    }

private:
    const Geometry &g_;
    std::vector<std::uint8_t> buffer_;
    std::vector<std::uint8_t *> rows_;
};

// The Cauchy encoding matrix of a stripe: identity over the data rows, then
// the parity rows; every square choice of its rows is invertible.
std::vector<std::uint8_t> EncodeMatrix(const Geometry &g) {
    std::size_t rows = g.dataPerStripe + g.parityPerStripe;
    std::vector<std::uint8_t> matrix(rows * g.dataPerStripe);
    gf_gen_cauchy1_matrix(matrix.data(), static_cast<int>(rows), static_cast<int>(g.dataPerStripe));
    return matrix;
}

std::vector<std::uint8_t> SerialiseCopy(const Geometry &g, const std::vector<Hash> &table) {
    std::vector<std::uint8_t> bytes(g.CopySize());
    std::memcpy(bytes.data(), kMagic, sizeof kMagic);
    Put32(&bytes[8], kVersion);
    Put32(&bytes[12], g.percent);
    Put64(&bytes[16], g.regionSize);
    Put32(&bytes[24], g.shardSize);
    Put32(&bytes[28], g.stripes);
    Put32(&bytes[32], g.dataPerStripe);
    Put32(&bytes[36], g.parityPerStripe);
    Put64(&bytes[40], g.dataShards);
    for (std::size_t i = 0; i < table.size(); ++i)
        std::copy(table[i].begin(), table[i].end(), bytes.begin() + kHeaderSize + i * kHashSize);
    // The copy's hash covers its header fields and its table.
    std::vector<std::uint8_t> covered(bytes.begin(), bytes.begin() + 48);
    covered.insert(covered.end(), bytes.begin() + kHeaderSize, bytes.end());
    Hash hash = HashOf(covered.data(), covered.size());
    std::copy(hash.begin(), hash.end(), bytes.begin() + 48);
    return bytes;
}

// Reads one copy of the header and table (the first at the record's start,
// the second at its end) and checks it against the region's size.
bool ReadCopy(const FileRegion &record, bool second, std::uint64_t regionSize, Geometry &g,
              std::vector<Hash> &table) {
    if (record.size < 2 * kHeaderSize) return false;
    std::array<std::uint8_t, kHeaderSize> header{};
    std::uint64_t headerAt = second ? record.offset + record.size - kHeaderSize : record.offset;
    if (ReadPadded(record.fd, headerAt, header.data(), header.size()) != kEngineOK ||
        std::memcmp(header.data(), kMagic, sizeof kMagic) != 0 || Get32(&header[8]) != kVersion)
        return false;
    unsigned percent = Get32(&header[12]);
    if (percent < kMinimumPercent || percent > kMaximumPercent) return false;
    Geometry expected = GeometryFor(regionSize, percent);
    Geometry stored = expected;
    stored.regionSize = Get64(&header[16]);
    stored.shardSize = Get32(&header[24]);
    stored.stripes = Get32(&header[28]);
    stored.dataPerStripe = Get32(&header[32]);
    stored.parityPerStripe = Get32(&header[36]);
    stored.dataShards = Get64(&header[40]);
    if (!(stored == expected) || expected.RecordSize() != record.size) return false;

    std::vector<std::uint8_t> tableBytes(expected.TableSize());
    std::uint64_t tableAt = second ? headerAt - tableBytes.size() : record.offset + kHeaderSize;
    if (ReadPadded(record.fd, tableAt, tableBytes.data(), tableBytes.size()) != kEngineOK)
        return false;
    std::vector<std::uint8_t> covered(header.begin(), header.begin() + 48);
    covered.insert(covered.end(), tableBytes.begin(), tableBytes.end());
    Hash hash = HashOf(covered.data(), covered.size());
    if (!std::equal(hash.begin(), hash.end(), header.begin() + 48)) return false;

    table.resize(tableBytes.size() / kHashSize);
    for (std::size_t i = 0; i < table.size(); ++i)
        std::copy_n(tableBytes.begin() + i * kHashSize, kHashSize, table[i].begin());
    g = expected;
    return true;
}

void AddDamage(std::vector<Damage> &list, std::uint64_t offset, std::uint64_t size) {
    list.push_back({offset, size});
}

// Sorts and joins touching ranges, so a run of shards reads as one range.
void Merge(std::vector<Damage> &list) {
    std::sort(list.begin(), list.end(),
              [](const Damage &a, const Damage &b) { return a.offset < b.offset; });
    std::vector<Damage> merged;
    for (const Damage &d : list) {
        if (!merged.empty() && merged.back().offset + merged.back().size == d.offset)
            merged.back().size += d.size;
        else
            merged.push_back(d);
    }
    list = std::move(merged);
}

// Rebuilds the data rows listed in `lost` from k good rows of the stripe.
// False when fewer than k rows are good.
bool Rebuild(const Geometry &g, const std::vector<std::uint8_t> &encode, Stripe &stripe,
             const std::vector<bool> &good, const std::vector<std::uint32_t> &lost) {
    const std::size_t k = g.dataPerStripe;
    std::vector<std::uint32_t> survivors;
    for (std::uint32_t r = 0; r < good.size() && survivors.size() < k; ++r)
        if (good[r]) survivors.push_back(r);
    if (survivors.size() < k) return false;

    std::vector<std::uint8_t> chosen(k * k), inverse(k * k);
    for (std::size_t i = 0; i < k; ++i)
        std::copy_n(encode.begin() + survivors[i] * k, k, chosen.begin() + i * k);
    if (gf_invert_matrix(chosen.data(), inverse.data(), static_cast<int>(k)) != 0) return false;

    std::vector<std::uint8_t> decode(lost.size() * k);
    for (std::size_t e = 0; e < lost.size(); ++e)
        std::copy_n(inverse.begin() + lost[e] * k, k, decode.begin() + e * k);
    std::vector<std::uint8_t> tables(k * lost.size() * 32);
    ec_init_tables(static_cast<int>(k), static_cast<int>(lost.size()), decode.data(),
                   tables.data());

    // Outputs go to buffers of their own: the lost rows are not inputs.
    std::vector<std::uint8_t> rebuilt(lost.size() * g.shardSize);
    std::vector<std::uint8_t *> inputs(k), outputs(lost.size());
    for (std::size_t i = 0; i < k; ++i) inputs[i] = stripe.Row(survivors[i]);
    for (std::size_t e = 0; e < lost.size(); ++e) outputs[e] = rebuilt.data() + e * g.shardSize;
    ec_encode_data(static_cast<int>(g.shardSize), static_cast<int>(k),
                   static_cast<int>(lost.size()), tables.data(), inputs.data(), outputs.data());
    for (std::size_t e = 0; e < lost.size(); ++e)
        std::memcpy(stripe.Row(lost[e]), outputs[e], g.shardSize);
    return true;
}

Result Examine(const FileRegion &region, const FileRegion &record, bool repair, Report &report) {
    report = Report{};
    Geometry g;
    std::vector<Hash> table;
    bool firstGood = ReadCopy(record, false, region.size, g, table);
    bool secondGood = false;
    if (!firstGood) {
        secondGood = ReadCopy(record, true, region.size, g, table);
        if (!secondGood) return kEngineRecoveryDataDamaged;
    } else {
        Geometry other;
        std::vector<Hash> otherTable;
        secondGood = ReadCopy(record, true, region.size, other, otherTable);
    }
    report.recordDamaged = !firstGood || !secondGood;
    if (g.dataShards == 0) return kEngineOK;

    std::vector<std::uint8_t> encode = EncodeMatrix(g);
    Stripe stripe(g);
    const std::uint32_t k = g.dataPerStripe, m = g.parityPerStripe;
    for (std::uint32_t s = 0; s < g.stripes; ++s) {
        if (Result r = stripe.ReadData(region, s)) return r;
        std::vector<bool> good(k + m, true);
        std::vector<std::uint32_t> lost;
        for (std::uint32_t i = 0; i < k; ++i) {
            std::uint64_t shard = g.DataShard(s, i);
            if (!stripe.Real(shard) || HashOf(stripe.Row(i), g.shardSize) == table[shard]) continue;
            good[i] = false;
            lost.push_back(i);
            AddDamage(report.damaged, shard * g.shardSize, stripe.ShardLength(shard));
        }
        for (std::uint32_t p = 0; p < m; ++p) {
            std::uint64_t at =
                record.offset + g.ParityOffset() + (std::uint64_t{s} * m + p) * g.shardSize;
            if (Result r = ReadPadded(record.fd, at, stripe.Row(k + p), g.shardSize)) return r;
            if (HashOf(stripe.Row(k + p), g.shardSize) != table[g.ParityIndex(s, p)]) {
                good[k + p] = false;
                report.recordDamaged = true;
            }
        }
        if (lost.empty()) continue;
        bool rebuilt = Rebuild(g, encode, stripe, good, lost);
        for (std::uint32_t i : lost) {
            std::uint64_t shard = g.DataShard(s, i);
            std::uint64_t offset = shard * g.shardSize;
            std::size_t length = stripe.ShardLength(shard);
            if (!rebuilt || HashOf(stripe.Row(i), g.shardSize) != table[shard]) {
                AddDamage(report.unrepairable, offset, length);
                continue;
            }
            if (repair)
                if (Result r = WriteAll(region.fd, region.offset + offset, stripe.Row(i), length))
                    return r;
        }
    }
    Merge(report.damaged);
    Merge(report.unrepairable);
    return kEngineOK;
}

}  // namespace

std::uint64_t RecordSize(std::uint64_t regionSize, unsigned percent) {
    if (percent < kMinimumPercent || percent > kMaximumPercent) return 0;
    return GeometryFor(regionSize, percent).RecordSize();
}

Result WriteRecord(const FileRegion &region, unsigned percent, int recordFd,
                   std::uint64_t recordOffset, std::uint64_t &recordSize) {
    if (percent < kMinimumPercent || percent > kMaximumPercent || region.fd < 0 || recordFd < 0)
        return kEngineInvalidParameter;
    Geometry g = GeometryFor(region.size, percent);
    std::vector<Hash> table(g.dataShards + g.ParityShards());
    if (g.dataShards > 0) {
        const std::uint32_t k = g.dataPerStripe, m = g.parityPerStripe;
        std::vector<std::uint8_t> encode = EncodeMatrix(g);
        std::vector<std::uint8_t> tables(std::size_t{k} * m * 32);
        ec_init_tables(static_cast<int>(k), static_cast<int>(m), encode.data() + k * k,
                       tables.data());
        Stripe stripe(g);
        for (std::uint32_t s = 0; s < g.stripes; ++s) {
            if (Result r = stripe.ReadData(region, s)) return r;
            for (std::uint32_t i = 0; i < k; ++i)
                if (std::uint64_t shard = g.DataShard(s, i); stripe.Real(shard))
                    table[shard] = HashOf(stripe.Row(i), g.shardSize);
            ec_encode_data(static_cast<int>(g.shardSize), static_cast<int>(k), static_cast<int>(m),
                           tables.data(), stripe.Rows(), stripe.ParityRows());
            for (std::uint32_t p = 0; p < m; ++p) {
                table[g.ParityIndex(s, p)] = HashOf(stripe.Row(k + p), g.shardSize);
                std::uint64_t at =
                    recordOffset + g.ParityOffset() + (std::uint64_t{s} * m + p) * g.shardSize;
                if (Result r = WriteAll(recordFd, at, stripe.Row(k + p), g.shardSize)) return r;
            }
        }
    }
    // Second copy: table then header, so the header ends the record.
    std::vector<std::uint8_t> copy = SerialiseCopy(g, table);
    std::vector<std::uint8_t> tail(copy.begin() + kHeaderSize, copy.end());
    tail.insert(tail.end(), copy.begin(), copy.begin() + kHeaderSize);
    if (Result r = WriteAll(recordFd, recordOffset, copy.data(), copy.size())) return r;
    if (Result r = WriteAll(recordFd, recordOffset + g.RecordSize() - tail.size(), tail.data(),
                            tail.size()))
        return r;
    recordSize = g.RecordSize();
    return kEngineOK;
}

Result CheckRegion(const FileRegion &region, const FileRegion &record, Report &report) {
    return Examine(region, record, false, report);
}

Result RepairRegion(const FileRegion &region, const FileRegion &record, Report &report) {
    if (Result r = Examine(region, record, true, report)) return r;
    return report.unrepairable.empty() ? kEngineOK : kEngineNotRecoverable;
}

}  // namespace engine::recovery
