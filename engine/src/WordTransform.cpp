#include "WordTransform.h"

#include <algorithm>
#include <cstring>

#include "ByteOrder.h"

namespace engine::vnkx {
namespace {

constexpr std::uint8_t kFirstOneByteCode = 0x80;
constexpr std::uint8_t kFirstTwoByteLead = 0xC0;
constexpr std::uint8_t kEscape = 0xFF;
constexpr std::uint8_t kWordEnd = '\n';
constexpr std::size_t kShortestWord = 3;
// A listed word costs its letters once; words used less often rarely repay
// that.
constexpr std::uint32_t kLeastUses = 8;
constexpr std::uint32_t kNoCode = ~0u;
constexpr std::size_t kShortCopy = 16;

struct ByteClasses {
    bool word[256] = {};
    bool digit[256] = {};
    constexpr ByteClasses() {
        for (int c = 'a'; c <= 'z'; ++c) word[c] = true;
        for (int c = 'A'; c <= 'Z'; ++c) word[c] = true;
        for (int c = '0'; c <= '9'; ++c) word[c] = digit[c] = true;
        word[static_cast<unsigned char>('_')] = true;
    }
};
constexpr ByteClasses kClasses;

// Walks the text as words (runs of letters, digits and underscores that do
// not start with a digit, of a length a code can stand for), handed to
// `onWord`, and the runs of bytes between them, handed to `onOther`.
template <class OnWord, class OnOther>
void Scan(const std::uint8_t *data, std::size_t size, OnWord onWord, OnOther onOther) {
    std::size_t i = 0;
    while (i < size) {
        std::size_t start = i;
        if (kClasses.word[data[i]]) {
            while (i < size && kClasses.word[data[i]]) ++i;
            std::size_t length = i - start;
            if (!kClasses.digit[data[start]] && length >= kShortestWord &&
                length <= WordTransform::kLongestWord) {
                onWord(start, length);
                continue;
            }
        } else {
            while (i < size && !kClasses.word[data[i]]) ++i;
        }
        onOther(start, i - start);
    }
}

// Eight bytes at a time: words are short, and the text is read twice.
std::uint32_t HashOf(const std::uint8_t *word, std::size_t length) {
    std::uint64_t hash = length * 0x9E3779B97F4A7C15ULL;
    for (std::size_t i = 0; i < length; i += 8) {
        std::uint64_t chunk = 0;
        std::memcpy(&chunk, word + i, std::min<std::size_t>(8, length - i));
        hash = (hash ^ chunk) * 0xFF51AFD7ED558CCDULL;
        hash ^= hash >> 29;
    }
    return static_cast<std::uint32_t>(hash ^ (hash >> 32));
}

// The distinct words of one text with their uses and codes. Words stay in
// the text (an entry is an offset and a length); slots index the entries,
// so an entry's number holds while the slots grow. At most kMostWords are
// kept, so that text of endless distinct words (hex dumps, identifiers of
// logs) costs a few MiB: a block of headers has about 90,000.
class WordTable {
public:
    struct Entry {
        std::uint32_t offset, length, hash, uses, code;
    };
    static constexpr std::uint32_t kNone = ~0u;
    static constexpr std::size_t kMostWords = 1 << 18;

    explicit WordTable(const std::uint8_t *text) : text_(text), slots_(1 << 16, kNone) {}

    // The word's entry, made when `add` and there is room; else kNone.
    std::uint32_t Find(std::size_t offset, std::size_t length, bool add) {
        std::uint32_t hash = HashOf(text_ + offset, length);
        std::size_t mask = slots_.size() - 1;
        for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
            std::uint32_t id = slots_[slot];
            if (id == kNone) {
                if (!add || entries_.size() >= kMostWords) return kNone;
                id = static_cast<std::uint32_t>(entries_.size());
                entries_.push_back({static_cast<std::uint32_t>(offset),
                                    static_cast<std::uint32_t>(length), hash, 0, kNoCode});
                slots_[slot] = id;
                if (entries_.size() * 2 > slots_.size()) Grow();
                return id;
            }
            const Entry &entry = entries_[id];
            if (entry.hash == hash && entry.length == length &&
                std::memcmp(text_ + entry.offset, text_ + offset, length) == 0)
                return id;
        }
    }
    std::vector<Entry> &Entries() { return entries_; }
    const std::uint8_t *Letters(const Entry &entry) const { return text_ + entry.offset; }

private:
    void Grow() {
        slots_.assign(slots_.size() * 2, kNone);
        std::size_t mask = slots_.size() - 1;
        for (std::uint32_t id = 0; id < entries_.size(); ++id) {
            std::size_t slot = entries_[id].hash & mask;
            while (slots_[slot] != kNone) slot = (slot + 1) & mask;
            slots_[slot] = id;
        }
    }

    const std::uint8_t *text_;
    std::vector<Entry> entries_;
    std::vector<std::uint32_t> slots_;
};

// The words worth a code, the best first: those that save the most bytes
// take the one-byte codes; the two-byte ones go in the order of their
// letters, so that words alike get codes alike.
std::vector<const WordTable::Entry *> ChooseWords(WordTable &table, std::size_t &oneByte) {
    std::vector<WordTable::Entry *> chosen;
    for (WordTable::Entry &entry : table.Entries())
        if (entry.uses >= kLeastUses) chosen.push_back(&entry);
    auto saved = [](const WordTable::Entry *entry) {
        return static_cast<std::uint64_t>(entry->uses) * (entry->length - 1);
    };
    auto byLetters = [&table](const WordTable::Entry *a, const WordTable::Entry *b) {
        int order =
            std::memcmp(table.Letters(*a), table.Letters(*b), std::min(a->length, b->length));
        return order != 0 ? order < 0 : a->length < b->length;
    };
    std::sort(chosen.begin(), chosen.end(), [&](const auto *a, const auto *b) {
        return saved(a) != saved(b) ? saved(a) > saved(b) : byLetters(a, b);
    });
    chosen.resize(
        std::min(chosen.size(), WordTransform::kOneByteWords + WordTransform::kTwoByteWords));
    oneByte = std::min(chosen.size(), WordTransform::kOneByteWords);
    std::sort(chosen.begin() + static_cast<std::ptrdiff_t>(oneByte), chosen.end(), byLetters);
    for (std::size_t i = 0; i < chosen.size(); ++i) chosen[i]->code = static_cast<std::uint32_t>(i);
    return {chosen.begin(), chosen.end()};
}

}  // namespace

bool WordTransform::Encode(const std::uint8_t *data, std::size_t size,
                           std::vector<std::uint8_t> &out) {
    std::size_t high = 0;
    for (std::size_t i = 0; i < size; ++i) high += data[i] >> 7;
    if (high > size / 64 || size > 0xFFFFFFFFu) return false;

    WordTable table(data);
    Scan(
        data, size,
        [&](std::size_t at, std::size_t length) {
            std::uint32_t id = table.Find(at, length, true);
            if (id != WordTable::kNone) ++table.Entries()[id].uses;
        },
        [](std::size_t, std::size_t) {});
    std::size_t oneByte = 0;
    std::vector<const WordTable::Entry *> words = ChooseWords(table, oneByte);
    if (words.empty()) return false;

    // Codes are shorter than their words, so the text grows only by its
    // escapes and the list.
    std::size_t listBytes = 0;
    for (const WordTable::Entry *word : words) listBytes += word->length + 1;
    out.resize(3 + listBytes + size + high);
    std::uint8_t *to = out.data();
    std::size_t twoByte = words.size() - oneByte;
    *to++ = static_cast<std::uint8_t>(oneByte);
    *to++ = static_cast<std::uint8_t>(twoByte & 0xFF);
    *to++ = static_cast<std::uint8_t>(twoByte >> 8);
    for (const WordTable::Entry *word : words) {
        std::memcpy(to, table.Letters(*word), word->length);
        to += word->length;
        *to++ = kWordEnd;
    }
    Scan(
        data, size,
        [&](std::size_t at, std::size_t length) {
            std::uint32_t id = table.Find(at, length, false);
            std::uint32_t code = id == WordTable::kNone ? kNoCode : table.Entries()[id].code;
            if (code == kNoCode) {
                std::memcpy(to, data + at, length);
                to += length;
            } else if (code < kOneByteWords) {
                *to++ = static_cast<std::uint8_t>(kFirstOneByteCode + code);
            } else {
                code -= kOneByteWords;
                *to++ = static_cast<std::uint8_t>(kFirstTwoByteLead + (code >> 8));
                *to++ = static_cast<std::uint8_t>(code & 0xFF);
            }
        },
        [&](std::size_t at, std::size_t length) {
            for (std::size_t i = at; i < at + length; ++i) {
                if (data[i] >= 0x80) *to++ = kEscape;
                *to++ = data[i];
            }
        });
    out.resize(static_cast<std::size_t>(to - out.data()));
    return true;
}

Result WordTransform::Decode(const std::uint8_t *in, std::size_t size, std::uint8_t *out,
                             std::size_t outSize) {
    if (size < 3) return kEngineItemDataDamaged;
    std::size_t oneByte = in[0], twoByte = Le16(in + 1);
    if (oneByte > kOneByteWords || twoByte > kTwoByteWords) return kEngineItemDataDamaged;
    struct Word {
        std::uint32_t offset, length;
    };
    std::vector<Word> words(oneByte + twoByte);
    std::size_t at = 3;
    for (Word &word : words) {
        std::size_t start = at;
        while (at < size && in[at] != kWordEnd && at - start < kLongestWord) ++at;
        if (at >= size || in[at] != kWordEnd || at == start) return kEngineItemDataDamaged;
        word = {static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(at - start)};
        ++at;
    }

    std::size_t made = 0;
    // Words and the runs between them are mostly short: where both sides
    // have room, a copy of a fixed 16 bytes (the bytes past the piece are
    // written over next) does for a call of the piece's exact length.
    auto emit = [&](const std::uint8_t *from, std::size_t length) {
        if (length > outSize - made) return false;
        if (length <= kShortCopy && outSize - made >= kShortCopy &&
            static_cast<std::size_t>(in + size - from) >= kShortCopy)
            std::memcpy(out + made, from, kShortCopy);
        else
            std::memcpy(out + made, from, length);
        made += length;
        return true;
    };
    while (at < size) {
        std::size_t plain = at;
        while (plain < size && in[plain] < 0x80) ++plain;
        if (!emit(in + at, plain - at)) return kEngineItemDataDamaged;
        if (plain == size) break;
        std::uint8_t lead = in[plain];
        at = plain + 1;
        const Word *word = nullptr;
        if (lead < kFirstTwoByteLead) {
            std::size_t index = lead - kFirstOneByteCode;
            if (index >= oneByte) return kEngineItemDataDamaged;
            word = &words[index];
        } else if (at < size && lead != kEscape) {
            std::size_t index =
                (static_cast<std::size_t>(lead - kFirstTwoByteLead) << 8) | in[at++];
            if (index >= twoByte) return kEngineItemDataDamaged;
            word = &words[oneByte + index];
        } else if (at < size && in[at] >= 0x80) {
            if (!emit(in + at++, 1)) return kEngineItemDataDamaged;
            continue;
        } else {
            return kEngineItemDataDamaged;
        }
        if (!emit(in + word->offset, word->length)) return kEngineItemDataDamaged;
    }
    return made == outSize ? kEngineOK : kEngineItemDataDamaged;
}

}  // namespace engine::vnkx
