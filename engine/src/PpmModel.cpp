#include "PpmModel.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "RangeDecoder.h"
#include "RangeEncoder.h"

// The structures below overlay one another in one block of memory (a
// context's single state lies where a larger one keeps its counts), so this
// unit is built without strict aliasing.

namespace engine::vnkx {
namespace {

constexpr unsigned kUnitSize = 12;
constexpr unsigned kMaxFrequency = 124;
constexpr int kIntervalBits = 7, kPeriodBits = 7;
constexpr unsigned kInterval = 1u << kIntervalBits;
constexpr unsigned kBinaryScale = 1u << (kIntervalBits + kPeriodBits);

// Escape estimates a binary context starts from, by the shape of its
// neighbourhood, and the escape count a context gets when it first grows
// past one symbol, by how surely its single symbol was predicted.
constexpr std::uint16_t kInitialBinaryEscape[8] = {0x3CDD, 0x1F3F, 0x59BF, 0x48F3,
                                                   0x64A1, 0x5ABC, 0x6632, 0x6051};
constexpr std::uint8_t kExpectedEscape[16] = {25, 14, 9, 7, 5, 5, 4, 4, 4, 3, 3, 3, 2, 2, 2, 2};

std::uint32_t Mean(std::uint32_t summ, int shift) { return (summ + (1u << (shift - 2))) >> shift; }

}  // namespace

struct PpmModel::State {
    std::uint8_t symbol, freq;
    std::uint16_t successorLow, successorHigh;

    std::uint32_t Successor() const {
        return successorLow | (static_cast<std::uint32_t>(successorHigh) << 16);
    }
    void SetSuccessor(std::uint32_t ref) {
        successorLow = static_cast<std::uint16_t>(ref);
        successorHigh = static_cast<std::uint16_t>(ref >> 16);
    }
};

// One unit. With one symbol, the state lies over summFreq and stats.
struct PpmModel::Context {
    std::uint16_t numStats, summFreq;
    std::uint32_t stats, suffix;
};

namespace {
struct FreeNode {
    std::uint32_t next, units;
};
}  // namespace

std::uint32_t PpmModel::See::Mean() {
    std::uint32_t r = summ >> shift;
    summ = static_cast<std::uint16_t>(summ - r);
    return r + (r == 0);
}

void PpmModel::See::Learn() {
    if (shift < kPeriodBits && --count == 0) {
        summ = static_cast<std::uint16_t>(summ << 1);
        count = static_cast<std::uint8_t>(3 << shift++);
    }
}

PpmModel::PpmModel(const PpmSettings &settings)
    : maxOrder_(std::clamp(settings.order, kLeastOrder, kMostOrder)) {
    static_assert(sizeof(State) == 6 && sizeof(Context) == kUnitSize);
    std::uint32_t mebibytes = std::clamp<std::uint32_t>(settings.memoryMiB, 1, 2047);
    size_ = mebibytes << 20;
    memory_.reset(new (std::nothrow) std::uint8_t[size_ + kUnitSize]);
    if (!memory_) return;
    base_ = memory_.get();

    for (unsigned i = 0, k = 0; i < kIndexCount; ++i) {
        unsigned step = i >= 12 ? 4 : (i >> 2) + 1;
        do unitsToIndex_[k++] = static_cast<std::uint8_t>(i);
        while (--step);
        indexToUnits_[i] = static_cast<std::uint8_t>(k);
    }
    statsToBinaryColumn_[0] = 0;
    statsToBinaryColumn_[1] = 2;
    std::memset(statsToBinaryColumn_ + 2, 4, 9);
    std::memset(statsToBinaryColumn_ + 11, 6, 256 - 11);
    for (unsigned i = 0; i < 3; ++i) statsToSeeRow_[i] = static_cast<std::uint8_t>(i);
    for (unsigned i = 3, row = 3, left = 1; i < 256; ++i) {
        statsToSeeRow_[i] = static_cast<std::uint8_t>(row);
        if (--left == 0) left = (++row) - 2;
    }
    for (unsigned i = 0; i < 256; ++i) highBitsFlag_[i] = i < 0x40 ? 0 : 8;
    dummySee_ = See{0, kPeriodBits, 64};
    Restart();
}

PpmModel::~PpmModel() = default;

std::uint32_t PpmModel::Ref(const void *at) const {
    return static_cast<std::uint32_t>(static_cast<const std::uint8_t *>(at) - base_);
}

PpmModel::Context *PpmModel::ContextAt(std::uint32_t ref) const {
    return reinterpret_cast<Context *>(base_ + ref);
}

PpmModel::State *PpmModel::StatsOf(const Context *context) const {
    return reinterpret_cast<State *>(base_ + context->stats);
}

PpmModel::State *PpmModel::OneState(Context *context) {
    return reinterpret_cast<State *>(&context->summFreq);
}

PpmModel::State *PpmModel::StatesOf(Context *context) const {
    return context->numStats == 1 ? OneState(context) : StatsOf(context);
}

// Every symbol of a context is in its suffix too; the search is bounded all
// the same, so that no model state can lead it astray.
PpmModel::State *PpmModel::FindSymbol(Context *context, std::uint8_t symbol) const {
    if (context->numStats == 1) {
        State *one = OneState(context);
        return one->symbol == symbol ? one : nullptr;
    }
    State *state = StatsOf(context);
    for (unsigned i = 0; i < context->numStats; ++i)
        if (state[i].symbol == symbol) return state + i;
    return nullptr;
}

void PpmModel::InsertNode(void *at, unsigned index) {
    auto *node = static_cast<FreeNode *>(at);
    node->next = freeList_[index];
    node->units = indexToUnits_[index];
    freeList_[index] = Ref(at);
}

void *PpmModel::RemoveNode(unsigned index) {
    auto *node = reinterpret_cast<FreeNode *>(base_ + freeList_[index]);
    freeList_[index] = node->next;
    return node;
}

// Gives the part of a block beyond its new size back to the free lists.
void PpmModel::SplitBlock(void *at, unsigned oldIndex, unsigned newIndex) {
    unsigned rest = indexToUnits_[oldIndex] - indexToUnits_[newIndex];
    auto *piece = static_cast<std::uint8_t *>(at) + indexToUnits_[newIndex] * kUnitSize;
    while (rest) {
        unsigned index = unitsToIndex_[rest - 1];
        if (indexToUnits_[index] > rest) --index;
        InsertNode(piece, index);
        piece += indexToUnits_[index] * kUnitSize;
        rest -= indexToUnits_[index];
    }
}

// Free blocks lying side by side are joined, so that larger requests can be
// met from many small blocks freed as state lists grew.
void PpmModel::GlueFreeBlocks() {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> blocks;
    for (unsigned index = 0; index < kIndexCount; ++index)
        for (std::uint32_t ref = freeList_[index]; ref;) {
            const auto *node = reinterpret_cast<const FreeNode *>(base_ + ref);
            blocks.emplace_back(ref, node->units);
            ref = node->next;
        }
    std::fill(std::begin(freeList_), std::end(freeList_), 0u);
    std::sort(blocks.begin(), blocks.end());
    for (std::size_t i = 0; i < blocks.size();) {
        std::uint32_t start = blocks[i].first, units = blocks[i].second;
        for (++i; i < blocks.size() && start + units * kUnitSize == blocks[i].first; ++i)
            units += blocks[i].second;
        auto *piece = base_ + start;
        while (units) {
            unsigned take = std::min(units, 128u);
            unsigned index = unitsToIndex_[take - 1];
            if (indexToUnits_[index] > take) --index;
            InsertNode(piece, index);
            piece += indexToUnits_[index] * kUnitSize;
            units -= indexToUnits_[index];
        }
    }
    glueCount_ = 255;
}

void *PpmModel::AllocUnitsRare(unsigned index) {
    if (glueCount_ == 0) {
        GlueFreeBlocks();
        if (freeList_[index]) return RemoveNode(index);
    }
    unsigned larger = index;
    do {
        if (++larger == kIndexCount) {
            std::uint32_t bytes = indexToUnits_[index] * kUnitSize;
            --glueCount_;
            if (static_cast<std::uint32_t>(unitsStart_ - text_) <= bytes) return nullptr;
            unitsStart_ -= bytes;
            return unitsStart_;
        }
    } while (!freeList_[larger]);
    void *block = RemoveNode(larger);
    SplitBlock(block, larger, index);
    return block;
}

void *PpmModel::AllocUnits(unsigned index) {
    if (freeList_[index]) return RemoveNode(index);
    std::uint32_t bytes = indexToUnits_[index] * kUnitSize;
    if (static_cast<std::uint32_t>(hiUnit_ - loUnit_) >= bytes) {
        void *block = loUnit_;
        loUnit_ += bytes;
        return block;
    }
    return AllocUnitsRare(index);
}

void *PpmModel::AllocContext() {
    if (hiUnit_ != loUnit_) return hiUnit_ -= kUnitSize;
    if (freeList_[0]) return RemoveNode(0);
    return AllocUnitsRare(0);
}

void *PpmModel::ShrinkUnits(void *old, unsigned oldUnits, unsigned newUnits) {
    unsigned oldIndex = unitsToIndex_[oldUnits - 1], newIndex = unitsToIndex_[newUnits - 1];
    if (oldIndex == newIndex) return old;
    if (freeList_[newIndex]) {
        void *block = RemoveNode(newIndex);
        std::memcpy(block, old, newUnits * kUnitSize);
        InsertNode(old, oldIndex);
        return block;
    }
    SplitBlock(old, oldIndex, newIndex);
    return old;
}

void PpmModel::Restart() {
    std::fill(std::begin(freeList_), std::end(freeList_), 0u);
    // Byte 0 stays unused so that a reference of 0 means none. The text of
    // recent symbols grows from the bottom, units from the top; contexts take
    // units from the very top, state lists from where the text area ends.
    text_ = base_ + 1;
    hiUnit_ = base_ + (size_ & ~3u);
    loUnit_ = unitsStart_ = hiUnit_ - size_ / 8 / kUnitSize * 7 * kUnitSize;
    glueCount_ = 0;

    orderFall_ = static_cast<unsigned>(maxOrder_);
    runLength_ = initRunLength_ = -(maxOrder_ < 12 ? maxOrder_ : 12) - 1;
    prevSuccess_ = 0;

    root_ = minContext_ = maxContext_ = reinterpret_cast<Context *>(hiUnit_ -= kUnitSize);
    minContext_->suffix = 0;
    minContext_->numStats = 256;
    minContext_->summFreq = 256 + 1;
    auto *stats = reinterpret_cast<State *>(loUnit_);
    foundState_ = stats;
    loUnit_ += 128 * kUnitSize;
    minContext_->stats = Ref(stats);
    for (unsigned i = 0; i < 256; ++i) {
        stats[i].symbol = static_cast<std::uint8_t>(i);
        stats[i].freq = 1;
        stats[i].SetSuccessor(0);
    }
    for (unsigned i = 0; i < 128; ++i)
        for (unsigned k = 0; k < 8; ++k) {
            auto value =
                static_cast<std::uint16_t>(kBinaryScale - kInitialBinaryEscape[k] / (i + 2));
            for (unsigned m = 0; m < 64; m += 8) binarySumm_[i][k + m] = value;
        }
    for (unsigned i = 0; i < 25; ++i)
        for (unsigned k = 0; k < 16; ++k)
            see_[i][k] = See{static_cast<std::uint16_t>((5 * i + 10) << (kPeriodBits - 4)),
                             kPeriodBits - 4, 4};
}

// Makes the contexts one order longer than those the symbol was found in,
// down the chain of suffixes that still point into the text.
PpmModel::Context *PpmModel::CreateSuccessors(bool skip) {
    textLost_ = false;
    Context *context = minContext_;
    std::uint32_t upBranch = foundState_->Successor();
    // A context met again before the text after its last occurrence was
    // written (or after that text was overwritten) cannot tell what follows.
    if (upBranch >= Ref(text_)) {
        textLost_ = true;
        return nullptr;
    }
    State *pending[kMostOrder];
    unsigned count = 0;
    if (!skip) pending[count++] = foundState_;
    while (context->suffix) {
        context = ContextAt(context->suffix);
        State *state = FindSymbol(context, foundState_->symbol);
        if (!state) {
            textLost_ = true;
            return nullptr;
        }
        std::uint32_t successor = state->Successor();
        if (successor != upBranch) {
            context = ContextAt(successor);
            if (count == 0) return context;
            break;
        }
        pending[count++] = state;
    }

    State up;
    up.symbol = base_[upBranch];
    up.SetSuccessor(upBranch + 1);
    State *base = FindSymbol(context, up.symbol);
    if (!base) {
        textLost_ = true;
        return nullptr;
    }
    if (context->numStats == 1) {
        up.freq = base->freq;
    } else {
        const State *state = base;
        std::uint32_t found = state->freq - 1u;
        std::uint32_t others = context->summFreq - context->numStats - found;
        others = std::max<std::uint32_t>(others, 1);
        up.freq = static_cast<std::uint8_t>(
            1 + ((2 * found <= others) ? (5 * found > others)
                                       : ((2 * found + 3 * others - 1) / (2 * others))));
    }
    do {
        auto *child = static_cast<Context *>(AllocContext());
        if (!child) return nullptr;
        child->numStats = 1;
        *OneState(child) = up;
        child->suffix = Ref(context);
        pending[--count]->SetSuccessor(Ref(child));
        context = child;
    } while (count);
    return context;
}

void PpmModel::UpdateModel() {
    const State found = *foundState_;
    std::uint32_t foundSuccessor = found.Successor();

    // The symbol also counts a little in the next shorter context.
    if (found.freq < kMaxFrequency / 4 && minContext_->suffix) {
        Context *shorter = ContextAt(minContext_->suffix);
        if (shorter->numStats == 1) {
            State *state = OneState(shorter);
            if (state->freq < 32) ++state->freq;
        } else {
            State *state = FindSymbol(shorter, found.symbol);
            if (state && state != StatsOf(shorter)) {
                if (state[0].freq >= state[-1].freq) {
                    std::swap(state[0], state[-1]);
                    --state;
                }
            }
            if (state && state->freq < kMaxFrequency - 9) {
                state->freq = static_cast<std::uint8_t>(state->freq + 2);
                shorter->summFreq = static_cast<std::uint16_t>(shorter->summFreq + 2);
            }
        }
    }

    if (orderFall_ == 0) {
        Context *made = CreateSuccessors(true);
        if (!made) return textLost_ ? BackToRoot() : Restart();
        minContext_ = maxContext_ = made;
        foundState_->SetSuccessor(Ref(made));
        return;
    }

    *text_++ = found.symbol;
    std::uint32_t successor = Ref(text_);
    if (text_ >= unitsStart_) return Restart();

    if (foundSuccessor) {
        if (IsText(foundSuccessor)) {
            Context *made = CreateSuccessors(false);
            if (!made) return textLost_ ? BackToRoot() : Restart();
            foundSuccessor = Ref(made);
        }
        if (--orderFall_ == 0) {
            successor = foundSuccessor;
            text_ -= (maxContext_ != minContext_);
        }
    } else {
        foundState_->SetSuccessor(successor);
        foundSuccessor = Ref(minContext_);
    }

    const unsigned ns = minContext_->numStats;
    const std::uint32_t s0 = minContext_->summFreq - ns - (found.freq - 1u);
    for (Context *context = maxContext_; context != minContext_;
         context = ContextAt(context->suffix)) {
        unsigned ns1 = context->numStats;
        if (ns1 >= 256) continue;  // holds every byte already
        if (ns1 != 1) {
            if ((ns1 & 1) == 0) {
                unsigned oldUnits = ns1 >> 1, index = unitsToIndex_[oldUnits - 1];
                if (index != unitsToIndex_[oldUnits]) {
                    void *grown = AllocUnits(index + 1);
                    if (!grown) return Restart();
                    void *old = StatsOf(context);
                    std::memcpy(grown, old, oldUnits * kUnitSize);
                    InsertNode(old, index);
                    context->stats = Ref(grown);
                }
            }
            context->summFreq =
                static_cast<std::uint16_t>(context->summFreq + (2 * ns1 < ns) +
                                           2 * ((4 * ns1 <= ns) & (context->summFreq <= 8 * ns1)));
        } else {
            auto *stats = static_cast<State *>(AllocUnits(0));
            if (!stats) return Restart();
            *stats = *OneState(context);
            context->stats = Ref(stats);
            if (stats->freq < kMaxFrequency / 4 - 1)
                stats->freq = static_cast<std::uint8_t>(stats->freq << 1);
            else
                stats->freq = kMaxFrequency - 4;
            context->summFreq = static_cast<std::uint16_t>(stats->freq + initEscape_ + (ns > 3));
        }
        // The new symbol's first count, inherited from how often it
        // followed the shorter context.
        std::uint32_t cf = 2 * static_cast<std::uint32_t>(found.freq) * (context->summFreq + 6u);
        std::uint32_t sf = s0 + context->summFreq;
        if (cf < 6 * sf) {
            cf = 1 + (cf > sf) + (cf >= 4 * sf);
            context->summFreq = static_cast<std::uint16_t>(context->summFreq + 3);
        } else {
            cf = 4 + (cf >= 9 * sf) + (cf >= 12 * sf) + (cf >= 15 * sf);
            context->summFreq = static_cast<std::uint16_t>(context->summFreq + cf);
        }
        State *added = StatsOf(context) + ns1;
        added->SetSuccessor(successor);
        added->symbol = found.symbol;
        added->freq = static_cast<std::uint8_t>(cf);
        context->numStats = static_cast<std::uint16_t>(ns1 + 1);
    }
    maxContext_ = minContext_ = ContextAt(foundSuccessor);
}

// Halves the counts of a context whose found symbol grew too large, keeps
// the list ordered by count and drops symbols whose count reached zero.
void PpmModel::Rescale() {
    State *stats = StatsOf(minContext_);
    State *state = foundState_;
    {
        State moved = *state;
        for (; state != stats; --state) state[0] = state[-1];
        *state = moved;
    }
    unsigned escape = minContext_->summFreq - state->freq;
    state->freq = static_cast<std::uint8_t>(state->freq + 4);
    unsigned adder = orderFall_ != 0;
    state->freq = static_cast<std::uint8_t>((state->freq + adder) >> 1);
    unsigned sum = state->freq;
    unsigned left = minContext_->numStats - 1u;
    do {
        escape -= (++state)->freq;
        state->freq = static_cast<std::uint8_t>((state->freq + adder) >> 1);
        sum += state->freq;
        if (state[0].freq > state[-1].freq) {
            State moved = *state;
            State *to = state;
            do to[0] = to[-1];
            while (--to != stats && moved.freq > to[-1].freq);
            *to = moved;
        }
    } while (--left);

    if (state->freq == 0) {
        unsigned oldCount = minContext_->numStats, zeros = 0;
        do ++zeros;
        while ((--state)->freq == 0);
        escape += zeros;
        minContext_->numStats = static_cast<std::uint16_t>(minContext_->numStats - zeros);
        if (minContext_->numStats == 1) {
            State only = *stats;
            do {
                only.freq = static_cast<std::uint8_t>(only.freq - (only.freq >> 1));
                escape >>= 1;
            } while (escape > 1);
            InsertNode(stats, unitsToIndex_[((oldCount + 1) >> 1) - 1]);
            *(foundState_ = OneState(minContext_)) = only;
            return;
        }
        unsigned oldUnits = (oldCount + 1) >> 1, newUnits = (minContext_->numStats + 1u) >> 1;
        if (oldUnits != newUnits) minContext_->stats = Ref(ShrinkUnits(stats, oldUnits, newUnits));
    }
    minContext_->summFreq = static_cast<std::uint16_t>(sum + escape - (escape >> 1));
    foundState_ = StatsOf(minContext_);
}

void PpmModel::BackToRoot() {
    minContext_ = maxContext_ = root_;
    orderFall_ = static_cast<unsigned>(maxOrder_);
}

void PpmModel::NextContext() {
    std::uint32_t successor = foundState_->Successor();
    if (orderFall_ == 0 && !IsText(successor))
        minContext_ = maxContext_ = ContextAt(successor);
    else
        UpdateModel();
}

void PpmModel::UpdateFirst() {
    prevSuccess_ = 2u * foundState_->freq > minContext_->summFreq;
    runLength_ += static_cast<int>(prevSuccess_);
    minContext_->summFreq = static_cast<std::uint16_t>(minContext_->summFreq + 4);
    foundState_->freq = static_cast<std::uint8_t>(foundState_->freq + 4);
    if (foundState_->freq > kMaxFrequency) Rescale();
    NextContext();
}

void PpmModel::UpdateLater(State *found) {
    found->freq = static_cast<std::uint8_t>(found->freq + 4);
    minContext_->summFreq = static_cast<std::uint16_t>(minContext_->summFreq + 4);
    foundState_ = found;
    if (found[0].freq > found[-1].freq) {
        std::swap(found[0], found[-1]);
        foundState_ = --found;
        if (found->freq > kMaxFrequency) Rescale();
    }
    NextContext();
}

void PpmModel::UpdateMasked() {
    minContext_->summFreq = static_cast<std::uint16_t>(minContext_->summFreq + 4);
    foundState_->freq = static_cast<std::uint8_t>(foundState_->freq + 4);
    if (foundState_->freq > kMaxFrequency) Rescale();
    runLength_ = initRunLength_;
    UpdateModel();
}

void PpmModel::BinaryHit(std::uint16_t &probability, State *one) {
    probability =
        static_cast<std::uint16_t>(probability + kInterval - Mean(probability, kPeriodBits));
    foundState_ = one;
    foundState_->freq = static_cast<std::uint8_t>(foundState_->freq + (foundState_->freq < 128));
    prevSuccess_ = 1;
    ++runLength_;
    NextContext();
}

void PpmModel::BinaryMiss(std::uint16_t &probability, State *one) {
    probability = static_cast<std::uint16_t>(probability - Mean(probability, kPeriodBits));
    initEscape_ = kExpectedEscape[probability >> 10];
    StartMasking();
    charMask_[one->symbol] = escapeCount_;
    prevSuccess_ = 0;
}

std::uint16_t &PpmModel::BinaryProbability() {
    const State *one = OneState(minContext_);
    const Context *suffix = ContextAt(minContext_->suffix);
    unsigned row = std::min<unsigned>(one->freq, 128) - 1;
    unsigned column = prevSuccess_ + statsToBinaryColumn_[suffix->numStats - 1u] + hiBitsFlag_ +
                      2u * highBitsFlag_[one->symbol] +
                      ((static_cast<unsigned>(runLength_) >> 26) & 0x20);
    return binarySumm_[row][column];
}

PpmModel::See *PpmModel::EscapeFrequency(unsigned unmasked, std::uint32_t &frequency) {
    unsigned numStats = minContext_->numStats, numMasked = numStats - unmasked;
    if (numStats == 256) {
        frequency = 1;
        return &dummySee_;
    }
    const Context *suffix = ContextAt(minContext_->suffix);
    See *see = see_[statsToSeeRow_[unmasked - 1]] +
               (static_cast<int>(unmasked) <
                static_cast<int>(suffix->numStats) - static_cast<int>(numStats)) +
               2 * (minContext_->summFreq < 11 * numStats) + 4 * (numMasked > unmasked) +
               hiBitsFlag_;
    frequency = see->Mean();
    return see;
}

// Moves to the next shorter context with symbols not yet masked. A shorter
// context holds every symbol of a longer one, so one with as many symbols
// as were masked is passed over unread (it is read when it has more: should
// a model ever break the rule, its symbols are still counted one by one).
void PpmModel::SkipMaskedContexts() {
    unsigned numMasked = minContext_->numStats;
    do {
        ++orderFall_;
        if (!minContext_->suffix) {
            minContext_ = nullptr;
            return;
        }
        minContext_ = ContextAt(minContext_->suffix);
    } while (minContext_->numStats == numMasked);
}

void PpmModel::StartMasking() {
    if (++escapeCount_ == 0) {
        std::memset(charMask_, 0, sizeof charMask_);
        escapeCount_ = 1;
    }
}

void PpmModel::MaskContext(Context *context) {
    const State *state = StatesOf(context);
    for (unsigned i = 0; i < context->numStats; ++i) charMask_[state[i].symbol] = escapeCount_;
}

void PpmModel::Encode(RangeEncoder &coder, std::uint8_t symbol) {
    hiBitsFlag_ = highBitsFlag_[previousSymbol_];
    previousSymbol_ = symbol;
    if (minContext_->numStats != 1) {
        State *state = StatsOf(minContext_);
        if (state->symbol == symbol) {
            coder.Encode(0, state->freq, minContext_->summFreq);
            foundState_ = state;
            return UpdateFirst();
        }
        prevSuccess_ = 0;
        std::uint32_t below = state->freq;
        for (unsigned left = minContext_->numStats - 1u; left; --left) {
            if ((++state)->symbol == symbol) {
                coder.Encode(below, state->freq, minContext_->summFreq);
                return UpdateLater(state);
            }
            below += state->freq;
        }
        coder.Encode(below, minContext_->summFreq - below, minContext_->summFreq);
        StartMasking();
        MaskContext(minContext_);
    } else {
        std::uint16_t &probability = BinaryProbability();
        State *one = OneState(minContext_);
        if (one->symbol == symbol) {
            coder.EncodeBit(probability, 0);
            return BinaryHit(probability, one);
        }
        coder.EncodeBit(probability, 1);
        BinaryMiss(probability, one);
    }
    for (;;) {
        SkipMaskedContexts();
        if (!minContext_) return;  // the order 0 context holds every byte
        State *found = nullptr;
        std::uint32_t below = 0, sum = 0;
        unsigned unmasked = 0;
        State *state = StatesOf(minContext_);
        for (unsigned i = 0; i < minContext_->numStats; ++i, ++state) {
            if (Masked(state->symbol)) continue;
            if (state->symbol == symbol) {
                found = state;
                below = sum;
            }
            sum += state->freq;
            ++unmasked;
        }
        if (unmasked == 0) continue;
        std::uint32_t escape;
        See *see = EscapeFrequency(unmasked, escape);
        if (found) {
            coder.Encode(below, found->freq, sum + escape);
            see->Learn();
            foundState_ = found;
            return UpdateMasked();
        }
        coder.Encode(sum, escape, sum + escape);
        see->summ = static_cast<std::uint16_t>(see->summ + sum + escape);
        MaskContext(minContext_);
    }
}

int PpmModel::Decode(RangeDecoder &coder) {
    hiBitsFlag_ = highBitsFlag_[previousSymbol_];
    if (minContext_->numStats != 1) {
        State *state = StatsOf(minContext_);
        std::uint32_t count = coder.Threshold(minContext_->summFreq);
        std::uint32_t above = state->freq;
        if (count < above) {
            coder.Decode(0, state->freq);
            foundState_ = state;
            FoundSymbol(state->symbol);
            UpdateFirst();
            return previousSymbol_;
        }
        prevSuccess_ = 0;
        for (unsigned left = minContext_->numStats - 1u; left; --left) {
            if ((above += (++state)->freq) > count) {
                coder.Decode(above - state->freq, state->freq);
                FoundSymbol(state->symbol);
                UpdateLater(state);
                return previousSymbol_;
            }
        }
        if (count >= minContext_->summFreq) return -1;
        coder.Decode(above, minContext_->summFreq - above);
        StartMasking();
        MaskContext(minContext_);
    } else {
        std::uint16_t &probability = BinaryProbability();
        State *one = OneState(minContext_);
        if (coder.DecodeBit(probability) == 0) {
            FoundSymbol(one->symbol);
            BinaryHit(probability, one);
            return previousSymbol_;
        }
        BinaryMiss(probability, one);
    }
    for (;;) {
        SkipMaskedContexts();
        if (!minContext_) return -1;
        State *stats = StatesOf(minContext_);
        std::uint32_t sum = 0;
        unsigned unmasked = 0;
        for (unsigned i = 0; i < minContext_->numStats; ++i)
            if (!Masked(stats[i].symbol)) {
                sum += stats[i].freq;
                ++unmasked;
            }
        if (unmasked == 0) continue;
        std::uint32_t escape;
        See *see = EscapeFrequency(unmasked, escape);
        std::uint32_t total = sum + escape;
        std::uint32_t count = coder.Threshold(total);
        if (count < sum) {
            std::uint32_t above = 0;
            State *state = stats;
            for (;; ++state) {
                if (Masked(state->symbol)) continue;
                if ((above += state->freq) > count) break;
            }
            coder.Decode(above - state->freq, state->freq);
            see->Learn();
            foundState_ = state;
            FoundSymbol(state->symbol);
            UpdateMasked();
            return previousSymbol_;
        }
        if (count >= total) return -1;
        coder.Decode(sum, escape);
        see->summ = static_cast<std::uint16_t>(see->summ + total);
        MaskContext(minContext_);
    }
}

}  // namespace engine::vnkx
