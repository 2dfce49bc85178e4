#include "ZipStreamEncoder.h"

#include <bzlib.h>
#include <lzma.h>
#include <zlib.h>
#include <zstd.h>

#include <algorithm>

#include "ZipFormat.h"

namespace engine {
namespace {

using namespace zipformat;

constexpr std::size_t kOut = 1 << 16;

// Each coder below runs its library the same way: hand it the input and
// room, pass on what it made, and go on until it has taken the input (and,
// at the end, said it is done).
class DeflateEncoder final : public ZipStreamEncoder {
public:
    explicit DeflateEncoder(int level) {
        ok_ = deflateInit2(&stream_, std::clamp(level, 1, 9), Z_DEFLATED, -15, 8,
                           Z_DEFAULT_STRATEGY) == Z_OK;
    }
    ~DeflateEncoder() override {
        if (ok_) deflateEnd(&stream_);
    }
    bool ok() const { return ok_; }
    std::uint16_t Method() const override { return kMethodDeflate; }
    std::uint16_t VersionNeeded() const override { return 20; }
    Result Code(const std::uint8_t *data, std::size_t size, bool last, const Sink &sink) override {
        std::uint8_t out[kOut];
        stream_.next_in = const_cast<std::uint8_t *>(data);
        stream_.avail_in = static_cast<uInt>(size);
        for (;;) {
            stream_.next_out = out;
            stream_.avail_out = kOut;
            int status = deflate(&stream_, last ? Z_FINISH : Z_NO_FLUSH);
            if (status == Z_STREAM_ERROR) return kEngineWriteFailed;
            if (Result result = sink(out, kOut - stream_.avail_out)) return result;
            if (last ? status == Z_STREAM_END : stream_.avail_out != 0) return kEngineOK;
        }
    }

private:
    z_stream stream_{};
    bool ok_ = false;
};

class Bzip2Encoder final : public ZipStreamEncoder {
public:
    explicit Bzip2Encoder(int level) {
        ok_ = BZ2_bzCompressInit(&stream_, std::clamp(level, 1, 9), 0, 0) == BZ_OK;
    }
    ~Bzip2Encoder() override {
        if (ok_) BZ2_bzCompressEnd(&stream_);
    }
    bool ok() const { return ok_; }
    std::uint16_t Method() const override { return kMethodBzip2; }
    std::uint16_t VersionNeeded() const override { return 46; }
    Result Code(const std::uint8_t *data, std::size_t size, bool last, const Sink &sink) override {
        char out[kOut];
        // bzip2 counts in unsigned ints: a larger piece goes in parts.
        constexpr std::size_t kPiece = 1u << 30;
        do {
            std::size_t piece = std::min(size, kPiece);
            bool end = last && piece == size;
            stream_.next_in = const_cast<char *>(reinterpret_cast<const char *>(data));
            stream_.avail_in = static_cast<unsigned>(piece);
            for (;;) {
                stream_.next_out = out;
                stream_.avail_out = kOut;
                int status = BZ2_bzCompress(&stream_, end ? BZ_FINISH : BZ_RUN);
                if (status < 0) return kEngineWriteFailed;
                if (Result result =
                        sink(reinterpret_cast<std::uint8_t *>(out), kOut - stream_.avail_out))
                    return result;
                if (end ? status == BZ_STREAM_END : stream_.avail_in == 0) break;
            }
            data += piece;
            size -= piece;
        } while (size > 0);
        return kEngineOK;
    }

private:
    bz_stream stream_{};
    bool ok_ = false;
};

// The preset of the level with the dictionary of the extent.
bool LzmaCoderOptions(int level, int extent, lzma_options_lzma &options) {
    if (lzma_lzma_preset(&options, static_cast<std::uint32_t>(std::clamp(level, 0, 9))))
        return false;
    options.dict_size = 1u << std::clamp(extent, 12, 30);
    return true;
}

// LZMA (14) and xz (95) through liblzma: LZMA is raw LZMA1 after a header of
// four bytes (the coder's version, the size of its properties) and its five
// bytes of properties, ended by an end marker (flag bit 1), as zip has it.
class LzmaEncoder final : public ZipStreamEncoder {
public:
    LzmaEncoder(bool xz, int level, int extent) : xz_(xz) {
        lzma_options_lzma options;
        if (!LzmaCoderOptions(level, extent, options)) return;
        lzma_filter filters[] = {{xz ? LZMA_FILTER_LZMA2 : LZMA_FILTER_LZMA1, &options},
                                 {LZMA_VLI_UNKNOWN, nullptr}};
        ok_ = (xz ? lzma_stream_encoder(&stream_, filters, LZMA_CHECK_CRC64)
                  : lzma_raw_encoder(&stream_, filters)) == LZMA_OK;
        if (!xz) {
            std::uint32_t dictionary = options.dict_size;
            header_ = {LZMA_VERSION_MAJOR, LZMA_VERSION_MINOR, 5, 0,
                       static_cast<std::uint8_t>((options.pb * 5 + options.lp) * 9 + options.lc)};
            for (int i = 0; i < 4; ++i)
                header_.push_back(static_cast<std::uint8_t>(dictionary >> (8 * i)));
        }
    }
    ~LzmaEncoder() override { lzma_end(&stream_); }
    bool ok() const { return ok_; }
    std::uint16_t Method() const override { return xz_ ? kMethodXz : kMethodLzma; }
    std::uint16_t VersionNeeded() const override { return 63; }
    std::uint16_t Flags() const override { return xz_ ? 0 : kFlagLzmaEndMarker; }
    Result Code(const std::uint8_t *data, std::size_t size, bool last, const Sink &sink) override {
        if (!header_.empty()) {
            if (Result result = sink(header_.data(), header_.size())) return result;
            header_.clear();
        }
        std::uint8_t out[kOut];
        stream_.next_in = data;
        stream_.avail_in = size;
        for (;;) {
            stream_.next_out = out;
            stream_.avail_out = kOut;
            lzma_ret status = lzma_code(&stream_, last ? LZMA_FINISH : LZMA_RUN);
            if (status != LZMA_OK && status != LZMA_STREAM_END)
                return status == LZMA_MEM_ERROR ? kEngineOutOfMemory : kEngineWriteFailed;
            if (Result result = sink(out, kOut - stream_.avail_out)) return result;
            if (last ? status == LZMA_STREAM_END : stream_.avail_in == 0) return kEngineOK;
        }
    }

private:
    bool xz_;
    lzma_stream stream_ = LZMA_STREAM_INIT;
    std::vector<std::uint8_t> header_;
    bool ok_ = false;
};

class ZstdEncoder final : public ZipStreamEncoder {
public:
    ZstdEncoder(int level, int extent) : context_(ZSTD_createCCtx()) {
        if (!context_) return;
        ZSTD_CCtx_setParameter(context_, ZSTD_c_compressionLevel, std::clamp(level, 1, 19));
        ZSTD_CCtx_setParameter(context_, ZSTD_c_windowLog, std::clamp(extent, 10, 27));
        ZSTD_CCtx_setParameter(context_, ZSTD_c_checksumFlag, 0);
    }
    ~ZstdEncoder() override { ZSTD_freeCCtx(context_); }
    bool ok() const { return context_ != nullptr; }
    std::uint16_t Method() const override { return kMethodZstd; }
    std::uint16_t VersionNeeded() const override { return 63; }
    Result Code(const std::uint8_t *data, std::size_t size, bool last, const Sink &sink) override {
        std::uint8_t out[kOut];
        ZSTD_inBuffer in{data, size, 0};
        for (;;) {
            ZSTD_outBuffer room{out, kOut, 0};
            std::size_t left =
                ZSTD_compressStream2(context_, &room, &in, last ? ZSTD_e_end : ZSTD_e_continue);
            if (ZSTD_isError(left)) return kEngineWriteFailed;
            if (Result result = sink(out, room.pos)) return result;
            if (last ? left == 0 : in.pos == in.size) return kEngineOK;
        }
    }

private:
    ZSTD_CCtx *context_;
};

template <class Coder, class... Arguments>
std::unique_ptr<ZipStreamEncoder> Started(Arguments... arguments) {
    auto coder = std::make_unique<Coder>(arguments...);
    if (!coder->ok()) return nullptr;
    return coder;
}

}  // namespace

std::unique_ptr<ZipStreamEncoder> ZipStreamEncoder::Make(int compMethod, int level, int extent) {
    switch (compMethod) {
        case 1:
            return Started<DeflateEncoder>(level);
        case 2:
            return Started<Bzip2Encoder>(level);
        case 3:
            return Started<LzmaEncoder>(false, level, extent);
        case 4:
            return Started<ZstdEncoder>(level, extent);
        case 5:
            return Started<LzmaEncoder>(true, level, extent);
        default:
            return nullptr;
    }
}

Result ZipStreamEncoder::CodeWhole(const std::uint8_t *data, std::size_t size,
                                   std::vector<std::uint8_t> &out) {
    out.clear();
    return Code(data, size, true, [&out](const std::uint8_t *bytes, std::size_t count) {
        out.insert(out.end(), bytes, bytes + count);
        return kEngineOK;
    });
}

std::uint64_t ZipEncoderMemory(int compMethod, int level, int extent) {
    lzma_options_lzma options;
    if ((compMethod != 3 && compMethod != 5) || !LzmaCoderOptions(level, extent, options)) return 0;
    lzma_filter filters[] = {{compMethod == 5 ? LZMA_FILTER_LZMA2 : LZMA_FILTER_LZMA1, &options},
                             {LZMA_VLI_UNKNOWN, nullptr}};
    // UINT64_MAX when liblzma cannot tell: refused as too much.
    return lzma_raw_encoder_memusage(filters);
}

}  // namespace engine
