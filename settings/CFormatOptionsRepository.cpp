#include "CFormatOptionsRepository.h"

#include <memory>
#include <variant>
#include <vector>

#include "CEngine.h"
#include "CIniFile.h"
#include "OptionStore.h"

namespace {

using Self = CFormatOptionsRepository;
using NamedField = optionstore::NamedField<Self, bool, DWORD>;
using Field = decltype(NamedField::field);
using optionstore::OptionKey;
using optionstore::ReadFields;
using optionstore::WriteFields;

constexpr char kVnkxFormatId[] = "vnkx";
constexpr const wchar_t *kVnkxSection = L"VarnickXFormatOptions";
constexpr const wchar_t *kZipSection = L"ZipFormatOptions";
constexpr const wchar_t *kBZipSection = L"BZipFormatOptions";
constexpr const wchar_t *kGZipSection = L"GZipFormatOptions";

// The detailed vnkx values, in the order the registry reads and writes them.
const std::vector<NamedField> &VnkxDetails() {
    static const std::vector<NamedField> fields = {
        {L"CompressionMethod", &Self::VnkxCompressionMethod},
        {L"CompressionLevel", &Self::VnkxCompressionLevel},
        {L"CompressionMemory", &Self::CompressionMemory},
        {L"EncryptionMethod", &Self::VnkxEncryptionMethod},
        {L"UseBlockMode", &Self::UseBlockMode},
        {L"RedundancyLevel", &Self::RedundancyLevel},
        {L"RecompressionLevel", &Self::RecompressionLevel},
        {L"TextEncoding", &Self::TextEncoding},
        {L"EmbedJPGThumbnails", &Self::EmbedJPGThumbnails},
        {L"ZipRecompression", &Self::ZipRecompression},
        {L"VnkxBackwardCompatible", &Self::VnkxBackwardCompatible},
        {L"VnkxDuplicateFolding", &Self::VnkxDuplicateFolding},
        {L"VnkxOptimize", &Self::VnkxOptimize},
        {L"RecompressionMask", &Self::RecompressionMask},
        {L"SimpleVnkxMethod", &Self::SimpleVnkxMethod},
    };
    return fields;
}

// One job-file key: its section, name and field.
struct IniField {
    const wchar_t *section;
    const wchar_t *name;
    Field field;
};

// The job-file keys in the order they are written and read. The classic
// method has no section of its own: the vnkx method that follows overwrites
// its line, and reading gives both fields the vnkx value.
const std::vector<IniField> &JobFileFields() {
    static const std::vector<IniField> fields = {
        {kVnkxSection, L"CompressionMethod", &Self::VnkCompressionMethod},
        {kZipSection, L"CompressionMethod", &Self::ZipCompressionMethod},
        {kZipSection, L"CompressionLevel", &Self::ZipCompressionLevel},
        {kBZipSection, L"CompressionLevel", &Self::BZipCompressionLevel},
        {kGZipSection, L"CompressionLevel", &Self::GZipCompressionLevel},
        {kVnkxSection, L"CompressionMethod", &Self::VnkxCompressionMethod},
        {kVnkxSection, L"CompressionLevel", &Self::VnkxCompressionLevel},
        {kVnkxSection, L"CompressionMemory", &Self::CompressionMemory},
        {kVnkxSection, L"EncryptionMethod", &Self::VnkxEncryptionMethod},
        {kVnkxSection, L"UseBlockMode", &Self::UseBlockMode},
        {kVnkxSection, L"RedundancyLevel", &Self::RedundancyLevel},
        {kVnkxSection, L"RecompressionLevel", &Self::RecompressionLevel},
        {kVnkxSection, L"TextEncoding", &Self::TextEncoding},
        {kVnkxSection, L"EmbedJPGThumbnails", &Self::EmbedJPGThumbnails},
        {kVnkxSection, L"ZipRecompression", &Self::ZipRecompression},
        {kVnkxSection, L"VnkxBackwardCompatible", &Self::VnkxBackwardCompatible},
        {kVnkxSection, L"VnkxDuplicateFolding", &Self::VnkxDuplicateFolding},
        {kVnkxSection, L"VnkxOptimize", &Self::VnkxOptimize},
        {kVnkxSection, L"RecompressionMask", &Self::RecompressionMask},
        {kZipSection, L"EncryptionMethod", &Self::ZipEncryptionMethod},
        {kVnkxSection, L"VnkxUseSimple", &Self::VnkxUseSimple},
        {kVnkxSection, L"SimpleVnkxMethod", &Self::SimpleVnkxMethod},
    };
    return fields;
}

// The engine's vnkx properties through one session handle. A read that
// fails leaves its target.
class VnkxProperties {
public:
    explicit VnkxProperties(CEngine *engine) : handle_(engine ? engine->GetEngine() : nullptr) {}

    void SelectMethod(int method) {
        SetFormatIntegerProperty(handle_, kVnkxFormatId, kFormatPropCompMethod, method);
    }
    void Get(const char *name, LONG &target) {
        int32_t value = 0;
        if (GetFormatIntegerProperty(handle_, kVnkxFormatId, name, &value) == 0) target = value;
    }

private:
    OpaqueEngineObject *handle_;
};

// A CEngine set as `self.Engine` for the time of one call when it has none.
class BorrowedEngine {
public:
    explicit BorrowedEngine(Self &self) : self_(self) {
        if (!self_.Engine) {
            own_ = std::make_unique<CEngine>();
            self_.Engine = own_.get();
        }
    }
    ~BorrowedEngine() {
        if (own_) self_.Engine = nullptr;
    }
    BorrowedEngine(const BorrowedEngine &) = delete;
    BorrowedEngine &operator=(const BorrowedEngine &) = delete;

private:
    Self &self_;
    std::unique_ptr<CEngine> own_;
};

}  // namespace

CFormatOptionsRepository::CFormatOptionsRepository()
    : Engine(nullptr),
      VnkCompressionMethod(1),
      ZipCompressionMethod(1),
      ZipCompressionLevel(6),
      BZipCompressionLevel(5),
      GZipCompressionLevel(6),
      VnkxCompressionMethod(5),
      VnkxCompressionLevel(1),
      CompressionMemory(22),
      VnkxEncryptionMethod(1),
      ZipEncryptionMethod(1),
      UseBlockMode(true),
      RedundancyLevel(0),
      TextEncoding(0),
      EmbedJPGThumbnails(true),
      ZipRecompression(true),
      RecompressionMask(12703),
      VnkxBackwardCompatible(false),
      VnkxDuplicateFolding(true),
      VnkxUseSimple(true),
      SimpleVnkxMethod(3),
      VnkxOptimize(true),
      RecompressionLevel(0) {
    // Unset until SetLevelAndExtentTable; -1 rather than garbage.
    for (auto &row : LevelAndExtentTable)
        for (LONG &cell : row) cell = -1;
}

CFormatOptionsRepository::CFormatOptionsRepository(CFormatOptionsRepository *source)
    : CFormatOptionsRepository() {
    Copy(source);
}

CFormatOptionsRepository::~CFormatOptionsRepository() = default;

void CFormatOptionsRepository::Copy(CFormatOptionsRepository *source) {
    if (!source || source == this) return;
    VnkCompressionMethod = source->VnkCompressionMethod;
    ZipCompressionMethod = source->ZipCompressionMethod;
    ZipCompressionLevel = source->ZipCompressionLevel;
    BZipCompressionLevel = source->BZipCompressionLevel;
    GZipCompressionLevel = source->GZipCompressionLevel;
    VnkxCompressionMethod = source->VnkxCompressionMethod;
    VnkxCompressionLevel = source->VnkxCompressionLevel;
    CompressionMemory = source->CompressionMemory;
    VnkxEncryptionMethod = source->VnkxEncryptionMethod;
    ZipEncryptionMethod = source->ZipEncryptionMethod;
    UseBlockMode = source->UseBlockMode;
    RedundancyLevel = source->RedundancyLevel;
    TextEncoding = source->TextEncoding;
    EmbedJPGThumbnails = source->EmbedJPGThumbnails;
    ZipRecompression = source->ZipRecompression;
    RecompressionMask = source->RecompressionMask;
    VnkxBackwardCompatible = source->VnkxBackwardCompatible;
    VnkxDuplicateFolding = source->VnkxDuplicateFolding;
    VnkxUseSimple = source->VnkxUseSimple;
    SimpleVnkxMethod = source->SimpleVnkxMethod;
    VnkxOptimize = source->VnkxOptimize;
    RecompressionLevel = source->RecompressionLevel;
}

void CFormatOptionsRepository::SetLevelAndExtentTable() {
    if (!Engine) return;
    VnkxProperties engine(Engine);
    auto &table = LevelAndExtentTable;
    // Row 1 is cleared with its level-most column twice and its extent-most
    // column not at all; the reads below normally fill it anyway.
    table[1][kLevelDefault] = -1;
    table[1][kLevelCurrent] = -1;
    table[1][kLevelLeast] = -1;
    table[1][kLevelMost] = -1;
    table[1][kExtentDefault] = -1;
    table[1][kExtentCurrent] = -1;
    table[1][kExtentLeast] = -1;
    table[1][kLevelMost] = -1;

    for (int row = 1; row < kLevelAndExtentRows; ++row) {
        engine.SelectMethod(row);
        const bool hasLevels = row != 6 && row != 7;
        if (hasLevels) {
            engine.Get(kFormatPropCompressionLeast, table[row][kLevelLeast]);
            engine.Get(kFormatPropCompressionMost, table[row][kLevelMost]);
            engine.Get(kFormatPropCompressionDefault, table[row][kLevelDefault]);
        } else {
            table[row][kLevelDefault] = -1;
            table[row][kLevelCurrent] = -1;
            table[row][kLevelLeast] = -1;
            table[row][kLevelMost] = -1;
        }
        engine.Get(kFormatPropCompExtentLeast, table[row][kExtentLeast]);
        engine.Get(kFormatPropCompExtentMost, table[row][kExtentMost]);
        engine.Get(kFormatPropCompExtentDefault, table[row][kExtentDefault]);

        // Rows 5 and 9 hand their defaults to the row before them, and their
        // own current columns stay as they were (row 5's extent aside).
        if (row == 5) {
            table[4][kLevelCurrent] = table[5][kLevelDefault];
            table[5][kExtentCurrent] = table[5][kExtentDefault];
        } else if (row == 9) {
            table[8][kLevelCurrent] = table[9][kLevelDefault];
            table[8][kExtentCurrent] = table[9][kExtentDefault];
        } else {
            if (hasLevels) table[row][kLevelCurrent] = table[row][kLevelDefault];
            table[row][kExtentCurrent] = table[row][kExtentDefault];
        }
    }
}

void CFormatOptionsRepository::SetupSimple() {
    auto &table = LevelAndExtentTable;
    if (!Engine) {
        CEngine own;
        VnkxProperties engine(&own);
        for (int row : {1, 5}) {
            engine.SelectMethod(row);
            engine.Get(kFormatPropCompressionDefault, table[row][kLevelDefault]);
            engine.Get(kFormatPropCompExtentDefault, table[row][kExtentDefault]);
        }
    }
    if (SimpleVnkxMethod != 6) return;
    VnkxCompressionMethod = 5;
    VnkxCompressionLevel = static_cast<DWORD>(table[5][kLevelDefault]);
    CompressionMemory = static_cast<DWORD>(table[5][kExtentDefault]);
    VnkxEncryptionMethod = 1;
    UseBlockMode = true;
    RedundancyLevel = 0;
    RecompressionLevel = 0;
    TextEncoding = 0;
    EmbedJPGThumbnails = false;
    ZipRecompression = false;
    VnkxDuplicateFolding = false;
    VnkxOptimize = false;
    RecompressionMask = 0;
    VnkxBackwardCompatible = true;
}

void CFormatOptionsRepository::Read(bool simple) {
    OptionKey classic(L"\\VarnickFormatOptions");
    classic.Read(L"CompressionMethod", VnkCompressionMethod);
    OptionKey zip(L"\\ZipFormatOptions");
    zip.Read(L"CompressionMethod", ZipCompressionMethod);
    zip.Read(L"CompressionLevel", ZipCompressionLevel);
    zip.Read(L"EncryptionMethod", ZipEncryptionMethod);
    OptionKey bzip(L"\\BZipFormatOptions");
    bzip.Read(L"CompressionLevel", BZipCompressionLevel);
    OptionKey gzip(L"\\GZipFormatOptions");
    gzip.Read(L"CompressionLevel", GZipCompressionLevel);

    OptionKey vnkx(L"\\VarnickXFormatOptions");
    vnkx.Read(L"VnkxUseSimple", VnkxUseSimple);
    if (!simple) VnkxUseSimple = false;
    if (VnkxUseSimple) {
        vnkx.Read(L"SimpleVnkxMethod", SimpleVnkxMethod);
        {
            BorrowedEngine engine(*this);
            SetLevelAndExtentTable();
        }
        SetupSimple();
    } else {
        ReadFields(*this, vnkx, VnkxDetails());
    }
}

void CFormatOptionsRepository::Save(bool all) {
    OptionKey classic(L"\\VarnickFormatOptions", true);
    classic.Write(L"CompressionMethod", VnkCompressionMethod);
    OptionKey zip(L"\\ZipFormatOptions", true);
    zip.Write(L"CompressionMethod", ZipCompressionMethod);
    zip.Write(L"CompressionLevel", ZipCompressionLevel);
    zip.Write(L"EncryptionMethod", ZipEncryptionMethod);
    OptionKey bzip(L"\\BZipFormatOptions", true);
    bzip.Write(L"CompressionLevel", BZipCompressionLevel);
    OptionKey gzip(L"\\GZipFormatOptions", true);
    gzip.Write(L"CompressionLevel", GZipCompressionLevel);

    OptionKey vnkx(L"\\VarnickXFormatOptions", true);
    vnkx.Write(L"VnkxUseSimple", VnkxUseSimple);
    vnkx.Write(L"SimpleVnkxMethod", SimpleVnkxMethod);
    // In simple mode the details stored earlier stay for a switch back.
    if (!VnkxUseSimple || all) WriteFields(*this, vnkx, VnkxDetails());
}

void CFormatOptionsRepository::SaveToIni(const wchar_t *path) {
    CIniFile ini(path);
    for (const IniField &f : JobFileFields()) {
        if (auto b = std::get_if<bool Self::*>(&f.field))
            ini.SetBool(f.section, f.name, this->**b);
        else
            ini.SetInt(f.section, f.name, this->*std::get<DWORD Self::*>(f.field));
    }
    ini.Save();
}

void CFormatOptionsRepository::ReadFromIni(const wchar_t *path) {
    CIniFile ini(path);
    for (const IniField &f : JobFileFields()) {
        if (auto b = std::get_if<bool Self::*>(&f.field)) {
            ini.GetBool(f.section, f.name, &(this->**b));
            continue;
        }
        DWORD Self::*member = std::get<DWORD Self::*>(f.field);
        // The memory value lands in the vnkx level, over the level just read;
        // the memory field keeps what it had.
        if (member == &Self::CompressionMemory) member = &Self::VnkxCompressionLevel;
        ini.GetInt(f.section, f.name, &(this->*member));
    }
}
