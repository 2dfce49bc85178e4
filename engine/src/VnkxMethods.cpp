#include "VnkxMethods.h"

#include <brotli/decode.h>
#include <brotli/encode.h>
#include <bzlib.h>
#include <libdeflate.h>
#include <lz4.h>
#include <lzma.h>
#define ZSTD_STATIC_LINKING_ONLY
#include <zstd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "ByteOrder.h"
#include "TextBlockCoder.h"
#include "WordTransform.h"

namespace engine::vnkx {
namespace {

constexpr std::uint64_t kMiB = 1ULL << 20;

// The engine's zstd levels start where zstd begins to beat LZMA-class
// ratios with long matching: level 1 is zstd 9, and the rest follows up to
// zstd's ultra levels.
// Room for a coder's worst case, left uninitialised: only the pages the
// coder writes take memory, so blocks in flight hold what they packed to.
struct Scratch {
    explicit Scratch(std::size_t bytes) : data(new std::uint8_t[bytes]), size(bytes) {}
    ~Scratch() { delete[] data; }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    std::uint8_t *data;
    std::size_t size;
};

// What a worker keeps from block to block. A fresh LZMA2 encoder maps and
// faults in its match finder for every block (some 90 MiB at an 8 MiB
// dictionary), and unmapping it again stops the other threads for the TLB;
// a reused one keeps that memory while its options keep their size.
struct CoderState {
    CoderState() = default;
    CoderState(const CoderState &) = delete;
    CoderState &operator=(const CoderState &) = delete;
    ~CoderState() {
        ZSTD_freeCCtx(zstd);
        lzma_end(&xz);
    }
    ZSTD_CCtx *zstd = nullptr;
    lzma_stream xz = LZMA_STREAM_INIT;
};

// Word text at the first level is packed by zstd 17 (its optimal parser)
// with a short search: about as small as LZMA2 with the short search the
// first level would get, as fast to make, and several times faster to
// decode. Later levels search longer with LZMA2, which packs smaller. The
// window is twice the dictionary of the extent, but the match finder's tree
// covers half of it and its hash table an eighth: smaller tables miss
// little in text and keep the search in the cache. Matches from 3 bytes on
// pay in transformed text, where a word is one or two bytes.
bool WordTextAsZstd(const MethodChoice &choice) { return choice.level <= 1; }
constexpr int kWordTextZstdLevel = 17;

ZSTD_compressionParameters WordTextZstdParameters(const MethodChoice &choice, std::size_t size) {
    ZSTD_compressionParameters parameters = ZSTD_getCParams(kWordTextZstdLevel, size, 0);
    parameters.windowLog = static_cast<unsigned>(std::clamp(choice.extent + 1, 20, 23));
    parameters.chainLog = parameters.windowLog - 1;
    parameters.hashLog = parameters.windowLog - 3;
    parameters.searchLog = 4;
    parameters.minMatch = 3;
    return parameters;
}

// The coder of CoderState a block's method works with, if any.
enum class KeptCoder { None, Zstd, Xz };

KeptCoder KeptCoderOf(const MethodChoice &choice) {
    switch (choice.method) {
        case kMethodZstd:
            return KeptCoder::Zstd;
        case kMethodLzma2:
        case kMethodPpmd:
        case kMethodLzma2Large:
            return KeptCoder::Xz;
        case kMethodWordText:
            return WordTextAsZstd(choice) ? KeptCoder::Zstd : KeptCoder::Xz;
        default:
            return KeptCoder::None;
    }
}

// The state, holding only the coder the block's method uses: another
// coder's memory would sit idle beside it (an LZMA2 encoder beside a text
// model, say).
CoderState &StateFor(const MethodChoice &choice, void *&state) {
    if (!state) state = new CoderState;
    auto &coders = *static_cast<CoderState *>(state);
    const KeptCoder kept = KeptCoderOf(choice);
    if (kept != KeptCoder::Zstd && coders.zstd) {
        ZSTD_freeCCtx(coders.zstd);
        coders.zstd = nullptr;
    }
    if (kept != KeptCoder::Xz) {
        lzma_end(&coders.xz);
        coders.xz = LZMA_STREAM_INIT;
    }
    return coders;
}

// The worker's zstd context with every parameter at zstd's default; null
// when none can be made.
ZSTD_CCtx *FreshZstdContext(CoderState &state) {
    if (!state.zstd) state.zstd = ZSTD_createCCtx();
    if (state.zstd) ZSTD_CCtx_reset(state.zstd, ZSTD_reset_session_and_parameters);
    return state.zstd;
}

// One zstd frame of `size` bytes at `data` that states its size, with the
// context's parameters, after `head` bytes left for the caller in `out`.
bool PackZstdFrame(ZSTD_CCtx *context, const std::uint8_t *data, std::size_t size, std::size_t head,
                   Bytes &out) {
    ZSTD_CCtx_setParameter(context, ZSTD_c_contentSizeFlag, 1);
    Scratch scratch(head + ZSTD_compressBound(size));
    std::size_t made =
        ZSTD_compress2(context, scratch.data + head, scratch.size - head, data, size);
    if (ZSTD_isError(made)) return false;
    out.assign(scratch.data, scratch.data + head + made);
    return true;
}

TextSettings TextSettingsOf(const MethodChoice &choice) {
    TextSettings settings;
    settings.ppm.order =
        std::clamp(choice.level, TextBlockCoder::kLeastOrder, TextBlockCoder::kMostOrder);
    settings.ppm.memoryMiB = 1u << (std::clamp(choice.extent, 20, 30) - 20);
    return settings;
}

int ZstdLevel(int level) { return std::clamp(level + 8, 1, ZSTD_maxCLevel()); }

bool LzmaOptions(const MethodChoice &choice, lzma_options_lzma &options) {
    if (lzma_lzma_preset(&options, static_cast<std::uint32_t>(std::clamp(choice.level, 0, 9))))
        return false;
    options.dict_size = 1u << std::clamp(choice.extent, 16, 30);
    if (choice.niceLength > 0)
        options.nice_len = static_cast<std::uint32_t>(std::clamp(choice.niceLength, 8, 273));
    if (choice.searchDepth > 0) options.depth = static_cast<std::uint32_t>(choice.searchDepth);
    return true;
}

// A zstd block: the engine's level, the window of the extent, long-distance
// matching.
bool CompressZstd(const MethodChoice &choice, const Bytes &in, Bytes &out, CoderState &state) {
    ZSTD_CCtx *context = FreshZstdContext(state);
    if (!context) return false;
    ZSTD_CCtx_setParameter(context, ZSTD_c_compressionLevel, ZstdLevel(choice.level));
    ZSTD_CCtx_setParameter(context, ZSTD_c_windowLog, std::clamp(choice.extent, 10, 27));
    ZSTD_CCtx_setParameter(context, ZSTD_c_enableLongDistanceMatching, 1);
    return PackZstdFrame(context, in.data(), in.size(), 0, out);
}

// The word text's zstd frame (no long-distance matching: it found nothing
// in text that the window does not reach).
bool EncodeWordTextZstd(const MethodChoice &choice, const Bytes &text, std::size_t head, Bytes &out,
                        CoderState &state) {
    ZSTD_CCtx *context = FreshZstdContext(state);
    if (!context) return false;
    const ZSTD_compressionParameters parameters = WordTextZstdParameters(choice, text.size());
    ZSTD_CCtx_setParameter(context, ZSTD_c_compressionLevel, kWordTextZstdLevel);
    ZSTD_CCtx_setParameter(context, ZSTD_c_windowLog, static_cast<int>(parameters.windowLog));
    ZSTD_CCtx_setParameter(context, ZSTD_c_chainLog, static_cast<int>(parameters.chainLog));
    ZSTD_CCtx_setParameter(context, ZSTD_c_hashLog, static_cast<int>(parameters.hashLog));
    ZSTD_CCtx_setParameter(context, ZSTD_c_searchLog, static_cast<int>(parameters.searchLog));
    ZSTD_CCtx_setParameter(context, ZSTD_c_minMatch, static_cast<int>(parameters.minMatch));
    return PackZstdFrame(context, text.data(), text.size(), head, out);
}

// Text has no alignment, and its literals follow the whole previous byte.
bool WordTextOptions(const MethodChoice &choice, lzma_options_lzma &options) {
    if (lzma_lzma_preset(&options, 6)) return false;
    options.dict_size = 1u << std::clamp(choice.extent, 16, 30);
    options.nice_len = static_cast<std::uint32_t>(std::clamp(choice.niceLength, 8, 273));
    options.depth = static_cast<std::uint32_t>(std::max(choice.searchDepth, 1));
    options.lc = 4;
    options.lp = 0;
    options.pb = 0;
    return true;
}

// An .xz stream of `size` bytes at `data`, after `head` bytes left for the
// caller in `out`.
bool EncodeXz(const lzma_options_lzma &options, bool branchFilter, const std::uint8_t *data,
              std::size_t size, std::size_t head, Bytes &out, CoderState &state) {
    lzma_options_lzma copy = options;
    lzma_filter plain[] = {{LZMA_FILTER_LZMA2, &copy}, {LZMA_VLI_UNKNOWN, nullptr}};
    lzma_filter branch[] = {
        {LZMA_FILTER_X86, nullptr}, {LZMA_FILTER_LZMA2, &copy}, {LZMA_VLI_UNKNOWN, nullptr}};
    if (lzma_stream_encoder(&state.xz, branchFilter ? branch : plain, LZMA_CHECK_NONE) != LZMA_OK)
        return false;
    Scratch scratch(head + lzma_stream_buffer_bound(size));
    state.xz.next_in = data;
    state.xz.avail_in = size;
    state.xz.next_out = scratch.data + head;
    state.xz.avail_out = scratch.size - head;
    if (lzma_code(&state.xz, LZMA_FINISH) != LZMA_STREAM_END) return false;
    out.assign(scratch.data, scratch.data + head + state.xz.total_out);
    return true;
}

bool DecodeXz(const std::uint8_t *in, std::size_t size, std::uint8_t *out, std::size_t outSize) {
    std::uint64_t memoryLimit = 1ULL << 31;
    std::size_t inAt = 0, outAt = 0;
    return lzma_stream_buffer_decode(&memoryLimit, 0, nullptr, in, &inAt, size, out, &outAt,
                                     outSize) == LZMA_OK &&
           outAt == outSize && inAt == size;
}

bool DecodeZstd(const std::uint8_t *in, std::size_t size, std::uint8_t *out, std::size_t outSize) {
    std::size_t made = ZSTD_decompress(out, outSize, in, size);
    return !ZSTD_isError(made) && made == outSize;
}

bool CompressLzma2(const MethodChoice &choice, const Bytes &in, Bytes &out, CoderState &state) {
    lzma_options_lzma options;
    return LzmaOptions(choice, options) &&
           EncodeXz(options, choice.branchFilter, in.data(), in.size(), 0, out, state);
}

// Word text: the form (bit 0: the words were replaced; bit 1: the stream
// is zstd, else .xz), the size of the text the stream holds, and the stream.
constexpr std::size_t kWordTextHead = 9;
constexpr std::uint8_t kFormWords = 1, kFormZstd = 2;

bool CompressWordText(const MethodChoice &choice, const Bytes &in, Bytes &out, CoderState &state) {
    Bytes words;
    bool replaced = WordTransform::Encode(in.data(), in.size(), words);
    const Bytes &text = replaced ? words : in;
    const bool zstd = WordTextAsZstd(choice);
    lzma_options_lzma options;
    bool packed =
        zstd ? EncodeWordTextZstd(choice, text, kWordTextHead, out, state)
             : WordTextOptions(choice, options) &&
                   EncodeXz(options, false, text.data(), text.size(), kWordTextHead, out, state);
    if (!packed) return false;
    Bytes head{static_cast<std::uint8_t>((replaced ? kFormWords : 0) | (zstd ? kFormZstd : 0))};
    Put64(head, text.size());
    std::copy(head.begin(), head.end(), out.begin());
    return true;
}

bool DecodeStream(std::uint8_t form, const std::uint8_t *in, std::size_t size, std::uint8_t *out,
                  std::size_t outSize) {
    return form & kFormZstd ? DecodeZstd(in, size, out, outSize) : DecodeXz(in, size, out, outSize);
}

bool DecodeWordText(const std::uint8_t *in, std::size_t size, Bytes &out) {
    if (size < kWordTextHead || in[0] > (kFormWords | kFormZstd)) return false;
    std::uint8_t form = in[0];
    std::uint64_t textSize = Le64(in + 1);
    in += kWordTextHead;
    size -= kWordTextHead;
    if (!(form & kFormWords))
        return textSize == out.size() && DecodeStream(form, in, size, out.data(), out.size());
    if (textSize > WordTransform::LargestForm(out.size())) return false;
    Bytes text(static_cast<std::size_t>(textSize));
    return DecodeStream(form, in, size, text.data(), text.size()) &&
           WordTransform::Decode(text.data(), text.size(), out.data(), out.size()) == kEngineOK;
}

bool CompressOther(const MethodChoice &choice, const Bytes &in, Bytes &out) {
    switch (choice.method) {
        case kMethodDeflate: {
            libdeflate_compressor *coder =
                libdeflate_alloc_compressor(std::clamp(choice.level, 1, 12));
            if (!coder) return false;
            out.resize(libdeflate_deflate_compress_bound(coder, in.size()));
            std::size_t made =
                libdeflate_deflate_compress(coder, in.data(), in.size(), out.data(), out.size());
            libdeflate_free_compressor(coder);
            out.resize(made);
            return made > 0;
        }
        case kMethodBzip2: {
            if (in.size() > std::numeric_limits<unsigned>::max() / 2) return false;
            unsigned made = static_cast<unsigned>(in.size() + in.size() / 100 + 600);
            out.resize(made);
            if (BZ2_bzBuffToBuffCompress(
                    reinterpret_cast<char *>(out.data()), &made,
                    const_cast<char *>(reinterpret_cast<const char *>(in.data())),
                    static_cast<unsigned>(in.size()), std::clamp(choice.level, 1, 9), 0,
                    0) != BZ_OK)
                return false;
            out.resize(made);
            return true;
        }
        case kMethodLz4: {
            if (in.size() > LZ4_MAX_INPUT_SIZE) return false;
            out.resize(static_cast<std::size_t>(LZ4_compressBound(static_cast<int>(in.size()))));
            int made = LZ4_compress_default(
                reinterpret_cast<const char *>(in.data()), reinterpret_cast<char *>(out.data()),
                static_cast<int>(in.size()), static_cast<int>(out.size()));
            out.resize(static_cast<std::size_t>(std::max(made, 0)));
            return made > 0;
        }
        case kMethodBrotli: {
            std::size_t made = BrotliEncoderMaxCompressedSize(in.size());
            if (made == 0) return false;
            out.resize(made);
            if (!BrotliEncoderCompress(std::clamp(choice.level, 0, 11),
                                       std::clamp(choice.extent, 10, 24), BROTLI_MODE_GENERIC,
                                       in.size(), in.data(), &made, out.data()))
                return false;
            out.resize(made);
            return true;
        }
        default:
            return false;
    }
}

// The targets of x86 near calls (E8) made absolute, so that calls of one
// function look alike. Every E8 is changed and the four bytes after it
// skipped, so the inverse, which sees the same opcodes, finds the same places.
void X86(Bytes &data, bool encode) {
    for (std::size_t i = 0; i + 5 <= data.size();) {
        if (data[i] != 0xE8) {
            ++i;
            continue;
        }
        std::uint32_t value = data[i + 1] | (data[i + 2] << 8) | (data[i + 3] << 16) |
                              (static_cast<std::uint32_t>(data[i + 4]) << 24);
        std::uint32_t position = static_cast<std::uint32_t>(i + 5);
        value = encode ? value + position : value - position;
        for (int k = 0; k < 4; ++k) data[i + 1 + k] = static_cast<std::uint8_t>(value >> (8 * k));
        i += 5;
    }
}

void Delta4(Bytes &data, bool encode) {
    if (encode) {
        for (std::size_t i = data.size(); i-- > 4;) data[i] -= data[i - 4];
    } else {
        for (std::size_t i = 4; i < data.size(); ++i) data[i] += data[i - 4];
    }
}

}  // namespace

bool FiltersInStream(std::uint8_t method) {
    return method == kMethodLzma2 || method == kMethodLzma2Large;
}

std::uint8_t CodedMethod(std::uint8_t requested) {
    return requested == kMethodPpmd ? static_cast<std::uint8_t>(kMethodLzma2) : requested;
}

std::uint64_t BlockSizeFor(const MethodChoice &choice) {
    switch (choice.method) {
        case kMethodLzma2:
        case kMethodPpmd:
        case kMethodLzma2Large:
            return std::clamp<std::uint64_t>(2ULL << std::clamp(choice.extent, 16, 30), 16 * kMiB,
                                             256 * kMiB);
        case kMethodZstd:
        case kMethodBrotli:
            return std::clamp<std::uint64_t>(2ULL << std::clamp(choice.extent, 10, 27), 16 * kMiB,
                                             256 * kMiB);
        case kMethodText:
            return std::clamp<std::uint64_t>(1ULL << (std::clamp(choice.extent, 20, 30) - 1),
                                             32 * kMiB, 128 * kMiB);
        case kMethodWordText:
            // Four dictionaries: the worker of the defaults then stays light
            // (two fit in 256 MiB beside a filling block), and larger blocks
            // pack only about 1% smaller.
            return std::clamp<std::uint64_t>(4ULL << std::clamp(choice.extent, 16, 30), 18 * kMiB,
                                             64 * kMiB);
        default:
            return 8 * kMiB;
    }
}

namespace {

std::uint64_t LzmaEncoderMemory(const MethodChoice &choice,
                                bool (*optionsOf)(const MethodChoice &, lzma_options_lzma &)) {
    lzma_options_lzma options;
    if (!optionsOf(choice, options)) return 0;
    lzma_filter filters[] = {{LZMA_FILTER_LZMA2, &options}, {LZMA_VLI_UNKNOWN, nullptr}};
    return lzma_raw_encoder_memusage(filters);
}

std::uint64_t ZstdEncoderMemory(const MethodChoice &choice, std::uint64_t block) {
    ZSTD_compressionParameters parameters = ZSTD_getCParams(ZstdLevel(choice.level), block, 0);
    parameters.windowLog = static_cast<unsigned>(std::clamp(choice.extent, 10, 27));
    return ZSTD_estimateCCtxSize_usingCParams(parameters) + (block >> 3);
}

}  // namespace

std::uint64_t WorkerMemory(const MethodChoice &choice) {
    std::uint64_t block = BlockSizeFor(choice);
    std::uint64_t coder = 0;
    switch (choice.method) {
        case kMethodLzma2:
        case kMethodPpmd:
        case kMethodLzma2Large:
            coder = LzmaEncoderMemory(choice, LzmaOptions);
            break;
        case kMethodZstd:
            coder = ZstdEncoderMemory(choice, block);
            break;
        case kMethodWordText:
            coder = WordTextAsZstd(choice)
                        ? ZSTD_estimateCCtxSize_usingCParams(WordTextZstdParameters(choice, block))
                        : LzmaEncoderMemory(choice, WordTextOptions);
            break;
        case kMethodBrotli:
            coder = 10ULL << std::clamp(choice.extent, 10, 24);
            break;
        case kMethodText:
            return block + TextBlockCoder::EncoderMemory(TextSettingsOf(choice), block);
        default:
            coder = 16 * kMiB;
    }
    return coder + 2 * block;
}

bool Compress(const MethodChoice &choice, const Bytes &in, Bytes &out, void *&coderState) {
    CoderState &coders = StateFor(choice, coderState);
    switch (choice.method) {
        case kMethodStore:
            return false;
        case kMethodZstd:
            return CompressZstd(choice, in, out, coders);
        case kMethodText:
            return TextBlockCoder::Encode(in.data(), in.size(), TextSettingsOf(choice), out);
        case kMethodLzma2:
        case kMethodPpmd:
        case kMethodLzma2Large:
            return CompressLzma2(choice, in, out, coders);
        case kMethodWordText:
            return CompressWordText(choice, in, out, coders);
        default:
            return CompressOther(choice, in, out);
    }
}

void FreeCoderState(void *coderState) { delete static_cast<CoderState *>(coderState); }

Result Decompress(std::uint8_t method, const std::uint8_t *in, std::size_t size,
                  std::uint64_t unpackedSize, Bytes &out) {
    if (unpackedSize > std::numeric_limits<std::size_t>::max() / 2) return kEngineItemDataDamaged;
    out.resize(static_cast<std::size_t>(unpackedSize));
    bool fits = false;
    switch (method) {
        case kMethodStore:
            fits = size == unpackedSize;
            if (fits && size) std::memcpy(out.data(), in, size);
            break;
        case kMethodDeflate: {
            libdeflate_decompressor *coder = libdeflate_alloc_decompressor();
            if (!coder) return kEngineOutOfMemory;
            fits = libdeflate_deflate_decompress(coder, in, size, out.data(), out.size(),
                                                 nullptr) == LIBDEFLATE_SUCCESS;
            libdeflate_free_decompressor(coder);
            break;
        }
        case kMethodBzip2: {
            unsigned made = static_cast<unsigned>(out.size());
            fits =
                size <= std::numeric_limits<unsigned>::max() &&
                out.size() <= std::numeric_limits<unsigned>::max() &&
                BZ2_bzBuffToBuffDecompress(reinterpret_cast<char *>(out.data()), &made,
                                           const_cast<char *>(reinterpret_cast<const char *>(in)),
                                           static_cast<unsigned>(size), 0, 0) == BZ_OK &&
                made == out.size();
            break;
        }
        case kMethodLzma2:
        case kMethodLzma2Large:
            fits = DecodeXz(in, size, out.data(), out.size());
            break;
        case kMethodWordText:
            fits = DecodeWordText(in, size, out);
            break;
        case kMethodZstd:
            fits = DecodeZstd(in, size, out.data(), out.size());
            break;
        case kMethodLz4: {
            int made =
                size <= static_cast<std::size_t>(std::numeric_limits<int>::max()) &&
                        out.size() <= static_cast<std::size_t>(std::numeric_limits<int>::max())
                    ? LZ4_decompress_safe(reinterpret_cast<const char *>(in),
                                          reinterpret_cast<char *>(out.data()),
                                          static_cast<int>(size), static_cast<int>(out.size()))
                    : -1;
            fits = made >= 0 && static_cast<std::size_t>(made) == out.size();
            break;
        }
        case kMethodText:
            return TextBlockCoder::Decode(in, size, out.data(), out.size());
        case kMethodBrotli: {
            std::size_t made = out.size();
            fits = BrotliDecoderDecompress(size, in, &made, out.data()) ==
                       BROTLI_DECODER_RESULT_SUCCESS &&
                   made == out.size();
            break;
        }
        default:
            return kEngineMethodUnsupported;
    }
    return fits ? kEngineOK : kEngineItemDataDamaged;
}

namespace {

// Slices of a block, spread over it, on which the delta filter is tried.
Bytes DeltaSample(const Bytes &data) {
    constexpr std::size_t kSlices = 4, kSlice = 256 * 1024;
    if (data.size() <= kSlices * kSlice) return data;
    Bytes sample;
    sample.reserve(kSlices * kSlice);
    std::size_t stride = (data.size() - kSlice) / (kSlices - 1) / 4 * 4;
    for (std::size_t i = 0; i < kSlices; ++i) {
        auto from = data.begin() + static_cast<std::ptrdiff_t>(i * stride);
        sample.insert(sample.end(), from, from + kSlice);
    }
    return sample;
}

// Order-0 entropy in bits, summed over the bytes.
double EntropyBits(const Bytes &data) {
    std::size_t counts[256] = {};
    for (std::uint8_t byte : data) ++counts[byte];
    double bits = 0;
    for (std::size_t count : counts)
        if (count)
            bits -= static_cast<double>(count) *
                    std::log2(static_cast<double>(count) / static_cast<double>(data.size()));
    return bits;
}

std::size_t QuickPackedSize(const Bytes &data) {
    Bytes out(ZSTD_compressBound(data.size()));
    std::size_t made = ZSTD_compress(out.data(), out.size(), data.data(), data.size(), 1);
    return ZSTD_isError(made) ? data.size() : made;
}

// Samples of 16-bit stereo sound and of 32-bit pixels pack far smaller
// after the delta of 4 (about 87% against 75%, and 79% against 52%, of
// their size with zstd), while text, code and 24-bit pixels pack worse:
// so the filter is tried on slices of the block. A cheap entropy test keeps
// most blocks from the trial.
bool DeltaHelps(const Bytes &data) {
    Bytes sample = DeltaSample(data);
    Bytes delta = sample;
    ApplyFilter(kFilterDelta4, delta);
    if (EntropyBits(delta) >= EntropyBits(sample) * 0.95) return false;
    return QuickPackedSize(delta) < QuickPackedSize(sample) * 0.95;
}

}  // namespace

bool DenseInCalls(const std::uint8_t *data, std::size_t size) {
    // Executable code shows as many near calls whose operand's top
    // byte is 00 or FF; text and media rarely do.
    std::size_t branches = 0;
    for (std::size_t i = 0; i + 5 <= size; ++i)
        if (data[i] == 0xE8 && (data[i + 4] == 0x00 || data[i + 4] == 0xFF)) ++branches;
    return branches > size / 1024;
}

std::uint8_t ChooseFilter(const Bytes &data) {
    if (data.size() < 4096) return kFilterNone;
    if (DenseInCalls(data.data(), data.size())) return kFilterX86;
    return DeltaHelps(data) ? kFilterDelta4 : kFilterNone;
}

void ApplyFilter(std::uint8_t filter, Bytes &data) {
    if (filter == kFilterX86) X86(data, true);
    if (filter == kFilterDelta4) Delta4(data, true);
}

bool RemoveFilter(std::uint8_t filter, Bytes &data) {
    switch (filter) {
        case kFilterNone:
            return true;
        case kFilterX86:
            X86(data, false);
            return true;
        case kFilterDelta4:
            Delta4(data, false);
            return true;
        default:
            return false;
    }
}

}  // namespace engine::vnkx
