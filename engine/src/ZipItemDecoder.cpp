#include "ZipItemDecoder.h"

#include <archive.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "ByteOrder.h"
#include "ZipFormat.h"

namespace engine {
namespace {

using namespace zipformat;

bool IsAes(const ZipStoredItem &item) {
    return item.method == kMethodAes && item.aesExtra.size() >= 11;
}

// The method the data was compressed with; an AES item names it in its extra field.
std::uint16_t RealMethod(const ZipStoredItem &item) {
    return IsAes(item) ? Le16(item.aesExtra.data() + 9) : item.method;
}

// An unenciphered zip of one item, named "x", around a compressed stream,
// for libarchive's reader of zips as streams (it needs no directory).
LibarchiveCoderDecoder::Envelope OneItemZip(const ZipStoredItem &item, std::uint16_t method,
                                            std::uint64_t compressed) {
    const bool large = compressed >= 0xFFFFFFFFu || item.size >= 0xFFFFFFFFu;
    LibarchiveCoderDecoder::Envelope envelope;
    auto &local = envelope.before;
    Put32(local, kLocalSignature);
    Put16(local, large ? 45 : 63);
    Put16(local, item.flags & kFlagMethodOptions);
    Put16(local, method);
    Put16(local, 0);             // time
    Put16(local, (1 << 5) | 1);  // 1980-01-01
    Put32(local, IsAes(item) ? 0 : item.crc);
    Put32(local, large ? 0xFFFFFFFFu : static_cast<std::uint32_t>(compressed));
    Put32(local, large ? 0xFFFFFFFFu : static_cast<std::uint32_t>(item.size));
    Put16(local, 1);               // the name's length
    Put16(local, large ? 20 : 0);  // the extra field's
    local.push_back('x');
    if (large) {
        Put16(local, 0x0001);
        Put16(local, 16);
        Put64(local, item.size);
        Put64(local, compressed);
    }
    envelope.enable = archive_read_support_format_zip_streamable;
    // An AES item keeps no CRC; the others' is checked by the engine's cursor.
    envelope.options = "zip:ignorecrc32";
    return envelope;
}

}  // namespace

bool ZipItemDecoder::Needed(const ZipStoredItem &item) {
    // libarchive deciphers stored and deflated items only, AES ones without
    // checking their authentication code (damage in a stored one went by),
    // and takes a wrong password that passes the traditional check byte.
    if (item.flags & kFlagEncrypted) return true;
    return RealMethod(item) == kMethodDeflate64;
}

ZipItemDecoder::ZipItemDecoder(int fd, const ZipStoredItem &item, PasswordSource *passwords,
                               std::size_t index)
    : fd_(fd), item_(item), passwords_(passwords), index_(index), method_(RealMethod(item)) {}

Result ZipItemDecoder::ReadRaw(std::uint8_t *out, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        ssize_t count = pread(fd_, out + done, size - done, static_cast<off_t>(at_ + done));
        if (count < 0) return LastErrno();
        if (count == 0) return kEngineArchiveTruncated;
        done += static_cast<std::size_t>(count);
    }
    at_ += size;
    return kEngineOK;
}

Result ZipItemDecoder::StartAes() {
    const int strength = item_.aesExtra[8];
    const std::size_t saltSize = ZipAesCipher::SaltSize(strength);
    if (saltSize == 0) return kEngineEncryptionUnsupported;
    const std::uint64_t overhead = saltSize + 2 + ZipAesCipher::kCodeSize;
    if (item_.compressedSize < overhead) return kEngineItemDataDamaged;
    std::vector<std::uint8_t> salt(saltSize);
    std::uint8_t verifier[2];
    if (Result result = ReadRaw(salt.data(), salt.size())) return result;
    if (Result result = ReadRaw(verifier, 2)) return result;
    payloadLeft_ = item_.compressedSize - overhead;
    if (!passwords_) return kEnginePasswordNeeded;
    for (;;) {
        std::string password;
        if (Result result = passwords_->Next(index_, password)) return result;
        aes_ = std::make_unique<ZipAesCipher>();
        if (aes_->StartDecrypting(password, strength, salt, verifier)) break;
    }
    passwords_->Accepted();
    return kEngineOK;
}

// The check byte passes one wrong password in 256, so a password that
// passes it decodes the start of the item (the whole of a small one, held
// against its CRC) before it is taken; what was decoded is given out first.
Result ZipItemDecoder::StartTraditional() {
    std::uint8_t header[ZipTraditionalCipher::kHeaderSize];
    if (item_.compressedSize < sizeof header) return kEngineItemDataDamaged;
    if (Result result = ReadRaw(header, sizeof header)) return result;
    const std::uint64_t payloadAt = at_;
    const std::uint8_t check = static_cast<std::uint8_t>(
        item_.flags & kFlagDescriptor ? item_.dosTime >> 8 : item_.crc >> 24);
    if (!passwords_) return kEnginePasswordNeeded;
    for (;;) {
        std::string password;
        if (Result result = passwords_->Next(index_, password)) return result;
        traditional_ = std::make_unique<ZipTraditionalCipher>();
        if (!traditional_->StartDecrypting(password, check, header)) continue;
        at_ = payloadAt;
        payloadLeft_ = item_.compressedSize - sizeof header;
        MakeDecoder();
        if (Probe()) break;
    }
    passwords_->Accepted();
    return kEngineOK;
}

bool ZipItemDecoder::Probe() {
    const std::size_t most =
        static_cast<std::size_t>(std::min<std::uint64_t>(kProbeSize, item_.size));
    probe_.resize(most);
    std::size_t filled = 0;
    while (filled < most) {
        std::size_t got = 0;
        if (Decode(probe_.data() + filled, most - filled, got) != kEngineOK) return false;
        if (got == 0) break;
        filled += got;
    }
    probe_.resize(filled);
    probeAt_ = 0;
    if (filled == item_.size)
        return crc32(0, probe_.data(), static_cast<uInt>(filled)) == item_.crc;
    return filled == most;
}

Result ZipItemDecoder::Start() {
    started_ = true;
    if (Result result = ZipDataStart(fd_, item_.localOffset, at_)) return result;
    payloadLeft_ = item_.compressedSize;
    if (IsAes(item_)) {
        if (Result result = StartAes()) return result;
    } else if (item_.flags & kFlagEncrypted) {
        return StartTraditional();  // its decoder is made while the password is tried
    }
    MakeDecoder();
    return kEngineOK;
}

void ZipItemDecoder::MakeDecoder() {
    deflate64_.reset();
    other_.reset();
    decodeFailure_ = kEngineOK;
    if (method_ == kMethodStore) return;  // the deciphered bytes are the item's
    if (method_ == kMethodDeflate64) {
        deflate64_ =
            std::make_unique<Deflate64Decoder>([this](std::uint8_t *buffer, std::size_t size) {
                std::size_t got = 0;
                decodeFailure_ = Payload(buffer, size, got);
                return got;
            });
    } else {
        auto source = [this](std::uint8_t *buffer, std::size_t size, std::size_t &got) {
            return Payload(buffer, size, got);
        };
        other_ = std::make_unique<LibarchiveCoderDecoder>(source, payloadLeft_,
                                                          OneItemZip(item_, method_, payloadLeft_));
    }
}

Result ZipItemDecoder::Payload(std::uint8_t *out, std::size_t size, std::size_t &got) {
    got = 0;
    const std::size_t want = static_cast<std::size_t>(std::min<std::uint64_t>(size, payloadLeft_));
    if (want == 0) return kEngineOK;
    if (Result result = ReadRaw(out, want)) return result;
    payloadLeft_ -= want;
    got = want;
    if (traditional_) traditional_->Decrypt(out, want);
    if (aes_) {
        if (!aes_->Decrypt(out, want)) return kEngineItemDataDamaged;
        if (payloadLeft_ == 0) {
            std::uint8_t stored[ZipAesCipher::kCodeSize];
            std::vector<std::uint8_t> made;
            if (Result result = ReadRaw(stored, sizeof stored)) return result;
            if (!aes_->Code(made) || !std::equal(made.begin(), made.end(), stored))
                return kEngineItemDataDamaged;
        }
    }
    return kEngineOK;
}

Result ZipItemDecoder::DrainPayload() {
    std::uint8_t rest[4096];
    for (std::size_t got = 1; got > 0;)
        if (Result result = Payload(rest, sizeof rest, got)) return result;
    return kEngineOK;
}

Result ZipItemDecoder::Decode(std::uint8_t *out, std::size_t size, std::size_t &got) {
    got = 0;
    if (deflate64_) {
        Result result = deflate64_->Read(out, size, got);
        return decodeFailure_ != kEngineOK ? decodeFailure_ : result;
    }
    if (other_) {
        // libarchive 3.6's zstd reader fails when it is asked again after
        // the last byte of an item whose input it has taken whole: the
        // item's size ends it here, and what is left of the payload is read
        // for the authentication code.
        if (decoded_ >= item_.size) return DrainPayload();
        Result result = other_->Read(out, size, got);
        decoded_ += got;
        return result;
    }
    return Payload(out, size, got);
}

Result ZipItemDecoder::Read(std::uint8_t *out, std::size_t size, std::size_t &got) {
    got = 0;
    if (!started_) startFailure_ = Start();
    if (startFailure_ != kEngineOK) return startFailure_;
    if (probeAt_ < probe_.size()) {
        got = std::min(size, probe_.size() - probeAt_);
        std::memcpy(out, probe_.data() + probeAt_, got);
        probeAt_ += got;
        return kEngineOK;
    }
    return Decode(out, size, got);
}

}  // namespace engine
