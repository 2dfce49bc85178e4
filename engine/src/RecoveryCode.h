// Reed-Solomon recovery data over a region of a file.
//
// The region is cut into shards of one size (the last one padded with zeros
// in the computation, never on disk). Shards are dealt round-robin onto
// stripes, so a run of consecutive damaged shards spreads over many stripes;
// each stripe of at most 100 data shards gets percent-of-that parity shards
// (at least one). Every data and parity shard has a strong check value
// (SHA-256, first 16 bytes) in the record, so damaged shards are found
// without comparing anything else. The record's header and table of check
// values are written twice, each copy with its own hash, so a damaged record
// still repairs with whichever copy checks out; damaged parity shards only
// count as lost ones.
//
// Work goes stripe by stripe with positioned reads and writes: memory is
// bounded by one stripe (at most 150 shards of at most 64 KiB) plus the
// table of check values (16 bytes per shard), whatever the region's size.
//
// Use: RecordSize() to reserve room, WriteRecord() after the region is
// final; later CheckRegion() to find damage and RepairRegion() (on a
// descriptor opened for writing, typically a copy of the damaged file) to
// rebuild it in place.
#pragma once

#include <cstdint>
#include <vector>

#include "Result.h"

namespace engine::recovery {

// A byte range of an open file (the descriptor is borrowed, not owned).
struct FileRegion {
    int fd = -1;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

constexpr unsigned kMinimumPercent = 1;
constexpr unsigned kMaximumPercent = 50;

// The size of the record WriteRecord makes for a region of `regionSize`
// bytes at `percent` (1..50); 0 for a percent outside that range.
std::uint64_t RecordSize(std::uint64_t regionSize, unsigned percent);

// Computes and writes the record of `region` at `percent` to `recordFd` at
// `recordOffset`; `recordSize` gets its size (equal to RecordSize()).
// kEngineInvalidParameter for a percent outside 1..50; a read or write
// failure gives the system's code.
Result WriteRecord(const FileRegion &region, unsigned percent, int recordFd,
                   std::uint64_t recordOffset, std::uint64_t &recordSize);

// A byte range of the region (offset relative to the region's start).
struct Damage {
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
    bool operator==(const Damage &) const = default;
};

struct Report {
    std::vector<Damage> damaged;       // data shards whose check value failed
    std::vector<Damage> unrepairable;  // of those, the ones the parity cannot rebuild
    bool recordDamaged = false;        // a copy of the table or a parity shard failed
    bool Clean() const { return damaged.empty() && !recordDamaged; }
};

// Finds damaged shards of `region` against the record (`record` is where the
// record lies: its descriptor, offset and size). Returns 0 when the record
// could be read (the report then says what is damaged and what could be
// rebuilt), kEngineRecoveryDataDamaged when neither copy of its table checks
// out or it does not describe a region of this size.
Result CheckRegion(const FileRegion &region, const FileRegion &record, Report &report);

// As CheckRegion, and rewrites every damaged shard that the parity of its
// stripe can rebuild, in place (region.fd must be open for writing).
// Returns 0 when everything damaged was rebuilt, kEngineNotRecoverable when
// some of it could not be (listed in report.unrepairable; the rest is still
// rebuilt), kEngineRecoveryDataDamaged as above.
Result RepairRegion(const FileRegion &region, const FileRegion &record, Report &report);

}  // namespace engine::recovery
