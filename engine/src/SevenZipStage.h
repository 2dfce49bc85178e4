// The stages that decode a 7z folder: each reads from the stage (or
// stages) before it and gives bytes on, so that a folder's coders, bound
// as its catalogue says, form one chain from the packed streams to the
// items. The stages that need a coder's record (LZMA through liblzma, and
// the coders only libarchive has) are the reader's.
#pragma once

#include <bzlib.h>
#include <openssl/evp.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "Bcj2Decoder.h"
#include "Deflate64Decoder.h"
#include "Result.h"

namespace engine::sevenzip {

inline constexpr std::size_t kStageChunk = 64 * 1024;

class Stage {
public:
    virtual ~Stage() = default;
    // got 0 at the end; a damaged stream is an error.
    virtual Result Read(std::uint8_t *out, std::size_t size, std::size_t &got) = 0;
};

class PackStage final : public Stage {
public:
    PackStage(int fd, std::uint64_t offset, std::uint64_t size)
        : fd_(fd), offset_(offset), remaining_(size) {}
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got) override {
        got = 0;
        std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(size, remaining_));
        if (want == 0) return kEngineOK;
        ssize_t count = pread(fd_, out, want, static_cast<off_t>(offset_));
        if (count < 0) return LastErrno();
        if (count == 0) return kEngineArchiveTruncated;
        got = static_cast<std::size_t>(count);
        offset_ += got;
        remaining_ -= got;
        return kEngineOK;
    }

private:
    int fd_;
    std::uint64_t offset_, remaining_;
};

class AesStage final : public Stage {
public:
    AesStage(std::unique_ptr<Stage> input, const std::uint8_t key[32], const std::uint8_t iv[16])
        : input_(std::move(input)), context_(EVP_CIPHER_CTX_new()) {
        if (context_) {
            EVP_DecryptInit_ex(context_, EVP_aes_256_cbc(), nullptr, key, iv);
            EVP_CIPHER_CTX_set_padding(context_, 0);
        }
    }
    ~AesStage() override {
        if (context_) EVP_CIPHER_CTX_free(context_);
    }
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got) override {
        got = 0;
        if (!context_) return kEngineOutOfMemory;
        if (position_ == plain_.size()) {
            // Whole blocks only: the packed data of a ciphered stream is a
            // multiple of the block size.
            std::vector<std::uint8_t> cipher(kStageChunk);
            std::size_t filled = 0;
            while (filled < cipher.size()) {
                std::size_t count = 0;
                if (Result result =
                        input_->Read(cipher.data() + filled, cipher.size() - filled, count))
                    return result;
                if (count == 0) break;
                filled += count;
            }
            filled -= filled % 16;
            plain_.resize(filled + 16);
            int produced = 0;
            if (filled > 0 && EVP_DecryptUpdate(context_, plain_.data(), &produced, cipher.data(),
                                                static_cast<int>(filled)) != 1)
                return kEngineItemDataDamaged;
            plain_.resize(static_cast<std::size_t>(produced));
            position_ = 0;
            if (plain_.empty()) return kEngineOK;
        }
        got = std::min(size, plain_.size() - position_);
        std::memcpy(out, plain_.data() + position_, got);
        position_ += got;
        return kEngineOK;
    }

private:
    std::unique_ptr<Stage> input_;
    EVP_CIPHER_CTX *context_;
    std::vector<std::uint8_t> plain_;
    std::size_t position_ = 0;
};

// The copy coder, and the end of every chain: at most the folder's size.
class LimitStage final : public Stage {
public:
    LimitStage(std::unique_ptr<Stage> input, std::uint64_t limit)
        : input_(std::move(input)), remaining_(limit) {}
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got) override {
        got = 0;
        std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(size, remaining_));
        if (want == 0) return kEngineOK;
        if (Result result = input_->Read(out, want, got)) return result;
        // A coder whose stream ends before the size the catalogue gives it
        // decoded damaged data (a cut archive fails earlier, in PackStage).
        if (got == 0) return kEngineItemDataDamaged;
        remaining_ -= got;
        return kEngineOK;
    }

private:
    std::unique_ptr<Stage> input_;
    std::uint64_t remaining_;
};

// The byte swap filters (SWAP2, SWAP4): each whole group of 2 or 4 bytes
// reversed, counted from the stream's start; a last incomplete group stays
// as it is. Groups are swapped as they come in, so that any amount of what
// is ready can be given.
class SwapStage final : public Stage {
public:
    SwapStage(std::unique_ptr<Stage> input, std::size_t width)
        : input_(std::move(input)), width_(width) {}
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got) override {
        got = 0;
        while (ready_ == 0 && !ended_) {
            std::size_t start = held_.size(), count = 0;
            held_.resize(start + kStageChunk);
            Result result = input_->Read(held_.data() + start, kStageChunk, count);
            held_.resize(start + count);
            if (result) return result;
            ended_ = count == 0;
            for (; ready_ + width_ <= held_.size(); ready_ += width_)
                std::reverse(held_.begin() + static_cast<std::ptrdiff_t>(ready_),
                             held_.begin() + static_cast<std::ptrdiff_t>(ready_ + width_));
            if (ended_) ready_ = held_.size();
        }
        got = std::min(size, ready_);
        std::memcpy(out, held_.data(), got);
        held_.erase(held_.begin(), held_.begin() + static_cast<std::ptrdiff_t>(got));
        ready_ -= got;
        return kEngineOK;
    }

private:
    std::unique_ptr<Stage> input_;
    std::size_t width_;
    std::vector<std::uint8_t> held_;
    std::size_t ready_ = 0;  // leading bytes of held_ that are swapped
    bool ended_ = false;
};

// Frames its input as LZMA2 stored chunks (a control byte, 1 for the first
// chunk, which resets the dictionary, 2 for the others; the size less one,
// big-endian; the bytes) and the end mark 0, so that liblzma's filters can
// run on data that no LZMA coder produced.
class StoredLzma2Stage final : public Stage {
public:
    explicit StoredLzma2Stage(std::unique_ptr<Stage> input) : input_(std::move(input)) {}
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got) override {
        got = 0;
        while (got < size) {
            if (at_ == framed_.size()) {
                if (ended_) break;
                if (Result result = Frame()) return result;
            }
            std::size_t count = std::min(size - got, framed_.size() - at_);
            std::memcpy(out + got, framed_.data() + at_, count);
            at_ += count;
            got += count;
        }
        return kEngineOK;
    }

private:
    static constexpr std::size_t kMostChunk = 1u << 16;

    Result Frame() {
        framed_.resize(3 + kMostChunk);
        std::size_t filled = 0;
        while (filled < kMostChunk) {
            std::size_t count = 0;
            if (Result result =
                    input_->Read(framed_.data() + 3 + filled, kMostChunk - filled, count))
                return result;
            if (count == 0) break;
            filled += count;
        }
        at_ = 0;
        if (filled == 0) {
            framed_.assign(1, 0x00);
            ended_ = true;
            return kEngineOK;
        }
        framed_[0] = first_ ? 0x01 : 0x02;
        framed_[1] = static_cast<std::uint8_t>((filled - 1) >> 8);
        framed_[2] = static_cast<std::uint8_t>(filled - 1);
        framed_.resize(3 + filled);
        first_ = false;
        return kEngineOK;
    }

    std::unique_ptr<Stage> input_;
    std::vector<std::uint8_t> framed_;
    std::size_t at_ = 0;
    bool first_ = true, ended_ = false;
};

// Reads a stage as a decoder's source; the stage's own failure is kept and
// given back in place of the decoder's.
class Feed {
public:
    explicit Feed(std::unique_ptr<Stage> input) : input_(std::move(input)) {}
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got) {
        got = 0;
        if (failed_ == kEngineOK) failed_ = input_->Read(out, size, got);
        return failed_;
    }
    // The input's failure, else `decoder`'s.
    Result Blame(Result decoder) const { return failed_ != kEngineOK ? failed_ : decoder; }

private:
    std::unique_ptr<Stage> input_;
    Result failed_ = kEngineOK;
};

// A zlib or bzip2 stream: both take input and give output in the same
// way, through their own stream record.
template <typename Codec>
class StreamStage final : public Stage {
public:
    explicit StreamStage(std::unique_ptr<Stage> input)
        : feed_(std::move(input)), buffer_(kStageChunk) {
        ready_ = Codec::Start(stream_);
    }
    ~StreamStage() override {
        if (ready_) Codec::End(stream_);
    }
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got) override {
        got = 0;
        if (!ready_) return kEngineOutOfMemory;
        while (got < size && !ended_) {
            if (stream_.avail_in == 0 && !inputEnded_) {
                std::size_t count = 0;
                if (Result result = feed_.Read(buffer_.data(), buffer_.size(), count))
                    return result;
                inputEnded_ = count == 0;
                stream_.next_in = reinterpret_cast<decltype(stream_.next_in)>(buffer_.data());
                stream_.avail_in = static_cast<unsigned>(count);
            }
            stream_.next_out = reinterpret_cast<decltype(stream_.next_out)>(out + got);
            stream_.avail_out = static_cast<unsigned>(size - got);
            const int status = Codec::Step(stream_);
            const std::size_t made = (size - got) - stream_.avail_out;
            got += made;
            if (status == Codec::kEnd) {
                ended_ = true;
            } else if (status != Codec::kOk || (made == 0 && inputEnded_)) {
                return feed_.Blame(kEngineItemDataDamaged);
            }
        }
        return kEngineOK;
    }

private:
    Feed feed_;
    typename Codec::Stream stream_{};
    std::vector<std::uint8_t> buffer_;
    bool ready_ = false, inputEnded_ = false, ended_ = false;
};

// Deflate as 7-Zip stores it: raw, without zlib's header.
struct Inflate {
    using Stream = z_stream;
    static constexpr int kOk = Z_OK, kEnd = Z_STREAM_END;
    static bool Start(Stream &stream) { return inflateInit2(&stream, -15) == Z_OK; }
    static int Step(Stream &stream) {
        const int status = inflate(&stream, Z_NO_FLUSH);
        return status == Z_BUF_ERROR ? Z_OK : status;
    }
    static void End(Stream &stream) { inflateEnd(&stream); }
};
using InflateStage = StreamStage<Inflate>;

struct Bunzip {
    using Stream = bz_stream;
    static constexpr int kOk = BZ_OK, kEnd = BZ_STREAM_END;
    static bool Start(Stream &stream) { return BZ2_bzDecompressInit(&stream, 0, 0) == BZ_OK; }
    static int Step(Stream &stream) { return BZ2_bzDecompress(&stream); }
    static void End(Stream &stream) { BZ2_bzDecompressEnd(&stream); }
};
using BzipStage = StreamStage<Bunzip>;

class Deflate64Stage final : public Stage {
public:
    explicit Deflate64Stage(std::unique_ptr<Stage> input)
        : feed_(std::move(input)), decoder_([this](std::uint8_t *buffer, std::size_t size) {
              std::size_t got = 0;
              feed_.Read(buffer, size, got);
              return got;
          }) {}
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got) override {
        return feed_.Blame(decoder_.Read(out, size, got));
    }

private:
    Feed feed_;
    Deflate64Decoder decoder_;
};

class Bcj2Stage final : public Stage {
public:
    Bcj2Stage(std::unique_ptr<Stage> (&inputs)[4], std::uint64_t size)
        : inputs_{std::move(inputs[0]), std::move(inputs[1]), std::move(inputs[2]),
                  std::move(inputs[3])},
          decoder_(Source(0), Source(1), Source(2), Source(3), size) {}
    Result Read(std::uint8_t *out, std::size_t size, std::size_t &got) override {
        return decoder_.Read(out, size, got);
    }

private:
    Bcj2Decoder::Source Source(std::size_t index) {
        return [this, index](std::uint8_t *buffer, std::size_t size, std::size_t &got) {
            return inputs_[index]->Read(buffer, size, got);
        };
    }

    std::unique_ptr<Stage> inputs_[4];
    Bcj2Decoder decoder_;
};

}  // namespace engine::sevenzip
