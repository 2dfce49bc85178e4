// The byte swap stage of the 7z reader, read in pieces of every size: whole
// groups reversed from the stream's start, a last short group as it is,
// whatever the pieces its input gives and its reader asks for.
#include <gtest/gtest.h>

#include <numeric>

#include "SevenZipStage.h"

namespace {

using engine::Result;
using engine::sevenzip::Stage;
using engine::sevenzip::SwapStage;

// Gives its bytes in pieces of `piece` bytes.
class PieceStage final : public Stage {
public:
    PieceStage(std::vector<std::uint8_t> bytes, std::size_t piece)
        : bytes_(std::move(bytes)), piece_(piece) {}
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got) override {
        got = std::min({size, piece_, bytes_.size() - at_});
        std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(at_), got, out);
        at_ += got;
        return kEngineOK;
    }

private:
    std::vector<std::uint8_t> bytes_;
    std::size_t piece_, at_ = 0;
};

TEST(SevenZipSwapStage, WholeGroupsAreReversedAndALastShortGroupKept) {
    for (std::size_t width : {2u, 4u}) {
        for (std::size_t length : {0u, 1u, 7u, 8u, 70001u}) {
            std::vector<std::uint8_t> plain(length);
            std::iota(plain.begin(), plain.end(), std::uint8_t{1});
            std::vector<std::uint8_t> expected = plain;
            for (std::size_t at = 0; at + width <= length; at += width)
                std::reverse(expected.begin() + static_cast<std::ptrdiff_t>(at),
                             expected.begin() + static_cast<std::ptrdiff_t>(at + width));
            for (std::size_t piece : {1u, 3u, 65536u}) {
                for (std::size_t ask : {1u, 5u, 4096u}) {
                    SwapStage stage(std::make_unique<PieceStage>(plain, piece), width);
                    std::vector<std::uint8_t> got;
                    std::vector<std::uint8_t> buffer(ask);
                    for (std::size_t count = 1; count > 0;) {
                        ASSERT_EQ(stage.Read(buffer.data(), ask, count), kEngineOK);
                        got.insert(got.end(), buffer.begin(),
                                   buffer.begin() + static_cast<std::ptrdiff_t>(count));
                    }
                    EXPECT_EQ(got, expected) << "width " << width << " length " << length
                                             << " piece " << piece << " ask " << ask;
                }
            }
        }
    }
}

}  // namespace
