// The statistics of the PPM text coder: a tree of contexts (the bytes
// before the current one, up to a longest order), each with the symbols seen
// after it and their counts. A symbol is coded in the longest context that
// has seen it, after escapes from the longer ones that have not; contexts
// grow one order at a time as they repeat, and the model starts over when
// its memory is full. Both directions share this class, so the decoder's
// model changes exactly as the encoder's did.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace engine::vnkx {

class RangeEncoder;
class RangeDecoder;

struct PpmSettings {
    int order = 12;                // longest context, 2 to 64
    std::uint32_t memoryMiB = 32;  // the model's memory; it starts over when full
};

class PpmModel {
public:
    static constexpr int kLeastOrder = 2, kMostOrder = 64;

    explicit PpmModel(const PpmSettings &settings);
    ~PpmModel();
    PpmModel(const PpmModel &) = delete;
    PpmModel &operator=(const PpmModel &) = delete;

    // False when the model's memory could not be had.
    bool Ready() const { return memory_ != nullptr; }
    void Encode(RangeEncoder &coder, std::uint8_t symbol);
    // The next symbol, or -1 where the stream cannot have come from the
    // encoder (damaged data).
    int Decode(RangeDecoder &coder);

private:
    struct State;
    struct Context;
    struct See {
        std::uint16_t summ;
        std::uint8_t shift, count;
        std::uint32_t Mean();
        void Learn();
    };
    static constexpr int kIndexCount = 38;

    // Memory: offsets into one block, 0 meaning none.
    std::uint32_t Ref(const void *at) const;
    Context *ContextAt(std::uint32_t ref) const;
    State *StatsOf(const Context *context) const;
    static State *OneState(Context *context);
    // The states of a context of any size.
    State *StatesOf(Context *context) const;
    State *FindSymbol(Context *context, std::uint8_t symbol) const;

    // Units of 12 bytes, kept in free lists by size class.
    void InsertNode(void *at, unsigned index);
    void *RemoveNode(unsigned index);
    void SplitBlock(void *at, unsigned oldIndex, unsigned newIndex);
    void GlueFreeBlocks();
    void *AllocUnitsRare(unsigned index);
    void *AllocUnits(unsigned index);
    void *AllocContext();
    void *ShrinkUnits(void *old, unsigned oldUnits, unsigned newUnits);

    void Restart();
    // Goes on from the order 0 context, with the statistics kept.
    void BackToRoot();
    // Successors point either into the text (contexts not yet made) or at
    // contexts, which all lie above the text.
    bool IsText(std::uint32_t ref) const { return base_ + ref < unitsStart_; }
    Context *CreateSuccessors(bool skip);
    void UpdateModel();
    void Rescale();
    void NextContext();
    void UpdateFirst();
    void UpdateLater(State *found);
    void UpdateMasked();
    // The single symbol of a binary context was the one, or was not.
    void BinaryHit(std::uint16_t &probability, State *one);
    void BinaryMiss(std::uint16_t &probability, State *one);
    std::uint16_t &BinaryProbability();
    See *EscapeFrequency(unsigned unmasked, std::uint32_t &frequency);
    void SkipMaskedContexts();
    void StartMasking();
    void MaskContext(Context *context);
    bool Masked(std::uint8_t symbol) const { return charMask_[symbol] == escapeCount_; }
    void FoundSymbol(std::uint8_t symbol) { previousSymbol_ = symbol; }

    std::unique_ptr<std::uint8_t[]> memory_;
    std::uint8_t *base_ = nullptr;
    std::uint32_t size_ = 0;
    int maxOrder_;
    std::uint8_t *text_ = nullptr, *unitsStart_ = nullptr, *loUnit_ = nullptr, *hiUnit_ = nullptr;
    std::uint32_t freeList_[kIndexCount] = {};
    unsigned glueCount_ = 0;

    Context *root_ = nullptr, *minContext_ = nullptr, *maxContext_ = nullptr;
    bool textLost_ = false;
    State *foundState_ = nullptr;
    unsigned orderFall_ = 0, initEscape_ = 0, prevSuccess_ = 0, hiBitsFlag_ = 0;
    int runLength_ = 0, initRunLength_ = 0;
    std::uint8_t previousSymbol_ = 0;
    std::uint8_t escapeCount_ = 0;
    std::uint8_t charMask_[256] = {};

    std::uint8_t indexToUnits_[kIndexCount] = {};
    std::uint8_t unitsToIndex_[128] = {};
    std::uint8_t statsToSeeRow_[256] = {};
    std::uint8_t statsToBinaryColumn_[256] = {};
    std::uint8_t highBitsFlag_[256] = {};
    std::uint16_t binarySumm_[128][64] = {};
    See see_[25][16] = {};
    See dummySee_ = {};
};

}  // namespace engine::vnkx
