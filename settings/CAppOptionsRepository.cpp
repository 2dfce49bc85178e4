#include "CAppOptionsRepository.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <variant>

#include "CFSUtils.h"
#include "CIniFile.h"
#include "OptionStore.h"
#include "platform/SpecialFolders.h"
#include "platform/WinPath.h"

namespace {

using Self = CAppOptionsRepository;
using NamedField = optionstore::NamedField<Self, bool, DWORD, std::wstring>;
using optionstore::OptionKey;
using optionstore::ReadFields;
using optionstore::WriteFields;

// One registry key and its values, in the order they are read and written.
struct RegistryGroup {
    const wchar_t *subKey;
    std::vector<NamedField> fields;
};

const std::vector<RegistryGroup> &RegistryGroups() {
    static const std::vector<RegistryGroup> groups = {
        {L"\\ArchiveViewer",
         {{L"ViewFlat", &Self::ViewFlat},
          {L"ViewState", &Self::ViewState},
          {L"ThumbnailSize", &Self::ThumbnailSize},
          {L"ThumbnailLimit", &Self::ThumbnailLimit}}},
        {L"\\StartActivity",
         {{L"UseEncryption", &Self::UseEncryption},
          {L"FormatType", &Self::FormatType},
          {L"UseSmartArchiving", &Self::UseSmartArchiving},
          {L"ShowDropDblClickMsg", &Self::ShowDropDblClickMsg},
          {L"ShowArcNameWarningMsg", &Self::ShowArcNameWarningMsg},
          {L"UseWizard", &Self::UseWizard},
          {L"DblClickAction", &Self::DblClickAction},
          {L"UseQuickToolsOpen", &Self::UseQuickToolsOpen}}},
        {L"\\CompressionOptions",
         {{L"DeleteSrc", &Self::DeleteSrc},
          {L"CompressOrig", &Self::CompressOrig},
          {L"CompressArcs", &Self::CompressArcs},
          {L"ForkHandling", &Self::ForkHandling},
          {L"AddConflictMethod", &Self::AddConflictMethod},
          {L"AddMergeContents", &Self::AddMergeContents},
          {L"CompressFolderMethod", &Self::CompressFolderMethod},
          {L"DefaultCompressFolder", &Self::DefaultCompressFolder}}},
        {L"\\ExpansionOptions",
         {{L"DeleteArcAfterExpand", &Self::DeleteArcAfterExpand},
          {L"ExpandFolderOptions", &Self::ExpandFolderOptions},
          {L"ExpandConflictMethod", &Self::ExpandConflictMethod},
          {L"ExpandMergeContents", &Self::ExpandMergeContents},
          {L"ExpandFolderMethod", &Self::ExpandFolderMethod},
          {L"AutoOpenExpandFolder", &Self::AutoOpenExpandFolder},
          {L"DefaultExpandFolder", &Self::DefaultExpandFolder}}},
        {L"\\WizardOptions",
         {{L"WizardTaskFolder", &Self::WizardTaskFolder},
          {L"WizardDeleteArchiveAfterExpansion", &Self::WizardDeleteArchiveAfterExpansion},
          {L"WizardShowSchedulerPage", &Self::WizardShowSchedulerPage},
          {L"DropletLocation", &Self::DropletLocation},
          {L"UseSmartSend", &Self::UseSmartSend},
          {L"SmartSendSizeTrigger", &Self::SmartSendSizeTrigger},
          {L"SmartSendService", &Self::SmartSendService},
          {L"SmartSendFTPProfile", &Self::SmartSendFTPProfile}}},
        {L"\\AVOptions", {{L"AVPath", &Self::AVPath}, {L"AVOption", &Self::AVOption}}},
    };
    return groups;
}

// The values kept at the product root itself.
const std::vector<NamedField> &RootFields() {
    static const std::vector<NamedField> fields = {
        {L"RecentListSize", &Self::RecentListSize},
        {L"CheckForUpdates", &Self::CheckForUpdates},
        {L"EnableContextMenu", &Self::EnableContextMenu},
        {L"TempFolder", &Self::TempFolder},
    };
    return fields;
}

// Registry values that the job file does not carry.
bool KeptOutOfJobFile(const wchar_t *name) {
    static const std::wstring_view kept[] = {L"ThumbnailSize", L"ThumbnailLimit",
                                             L"ShowDropDblClickMsg", L"AutoOpenExpandFolder",
                                             L"SmartSendSizeTrigger"};
    return std::find(std::begin(kept), std::end(kept), name) != std::end(kept);
}

// The keys of the job file's "AppOptions" section, in the order they are
// written and read: the root values, then the keys' values in registry
// order, less those kept out.
const std::vector<NamedField> &JobFileFields() {
    static const std::vector<NamedField> fields = [] {
        std::vector<NamedField> all = RootFields();
        for (const RegistryGroup &group : RegistryGroups()) {
            for (const NamedField &field : group.fields) {
                if (!KeptOutOfJobFile(field.name)) all.push_back(field);
            }
        }
        return all;
    }();
    return fields;
}

constexpr const wchar_t *kJobSection = L"AppOptions";
constexpr const wchar_t *kExcludeLocations = L"ExcludeLocations";
constexpr const wchar_t *kSmartSendExtTriggers = L"SmartSendExtTriggers";
constexpr const wchar_t *kLocationHistoryKey = L"\\StartActivity\\LocationHistory";
// Name buffers of the list reads, in characters.
constexpr DWORD kListBufferChars = 1024;
// Value buffers of the job-file string reads, in characters.
constexpr unsigned kIniStringChars = 1024;

std::wstring RootPlus(const wchar_t *subKey) {
    return std::wstring(optionstore::kProductRoot) + subKey;
}

// The two list keys are full paths of their own below the root.
std::wstring ListKeyPath(const wchar_t *name) {
    return std::wstring(optionstore::kProductRoot) + L"\\" + name;
}

// The list's values replace it when the key has at least one; an empty or
// missing key leaves it. Reading stops at an empty name.
void ReadRegistryList(const std::wstring &keyPath, std::vector<std::wstring> &list) {
    OptionKey key(keyPath, false);
    CRegistry &registry = key.Registry();
    wchar_t name[kListBufferChars] = {};
    if (!registry.FindFirst(name, kListBufferChars)) return;
    list.clear();
    do {
        if (name[0] == L'\0') break;
        std::wstring value;
        if (key.Read(name, value)) list.push_back(value);
        name[0] = L'\0';
    } while (registry.FindNext(name, kListBufferChars));
}

// Replaced whole: the key and its old values go, then one value an entry,
// named by its index.
void SaveRegistryList(const std::wstring &keyPath, const std::vector<std::wstring> &list) {
    OptionKey key(keyPath, true);
    CRegistry &registry = key.Registry();
    registry.RemoveKey();
    registry.CreateAppKey(keyPath.c_str());
    for (std::size_t i = 0; i < list.size(); ++i)
        registry.WriteRegSetting(std::to_wstring(i).c_str(), list[i].c_str());
}

void SaveIniField(CIniFile &ini, const Self &self, const NamedField &f) {
    if (auto b = std::get_if<bool Self::*>(&f.field)) {
        ini.SetBool(kJobSection, f.name, self.**b);
    } else if (auto n = std::get_if<DWORD Self::*>(&f.field)) {
        ini.SetInt(kJobSection, f.name, self.**n);
    } else {
        const std::wstring &text = self.*std::get<std::wstring Self::*>(f.field);
        // An empty text leaves no line, so an older line of the name stays.
        if (!text.empty()) ini.SetString(kJobSection, f.name, text.c_str());
    }
}

void ReadIniField(CIniFile &ini, Self &self, const NamedField &f) {
    if (auto b = std::get_if<bool Self::*>(&f.field)) {
        ini.GetBool(kJobSection, f.name, &(self.**b));
    } else if (auto n = std::get_if<DWORD Self::*>(&f.field)) {
        ini.GetInt(kJobSection, f.name, &(self.**n));
    } else {
        // The field takes whatever the cleared buffer holds afterwards: a
        // missing or too long value empties it.
        wchar_t buffer[kIniStringChars] = {};
        ini.GetString(kJobSection, f.name, buffer, kIniStringChars);
        self.*std::get<std::wstring Self::*>(f.field) = buffer;
    }
}

void SaveIniList(CIniFile &ini, const wchar_t *section, const std::vector<std::wstring> &list) {
    for (std::size_t i = 0; i < list.size(); ++i)
        ini.SetString(section, std::to_wstring(i).c_str(), list[i].c_str());
}

// A section with at least one entry replaces the list, in file order; the
// names do not matter. An absent or empty section leaves it.
void ReadIniList(CIniFile &ini, const wchar_t *section, std::vector<std::wstring> &list) {
    const wchar_t *name = ini.GetFirstName(section);
    if (!name) return;
    list.clear();
    for (; name; name = ini.GetNextName()) {
        wchar_t value[kIniStringChars] = {};
        ini.GetString(section, name, value, kIniStringChars);
        list.push_back(value);
    }
}

// A special folder, or an empty text when the shell has none.
std::wstring ShellFolder(int csidl) {
    wchar_t buffer[platform::kPathBufferSize] = {};
    SHGetSpecialFolderPathW(nullptr, buffer, csidl, FALSE);
    return buffer;
}

// A folder of the product below the local application data folder, made
// on disk.
std::wstring MakeProductFolder(const wchar_t *name) {
    std::wstring path = platform::JoinPath(
        platform::JoinPath(ShellFolder(CSIDL_LOCAL_APPDATA), L"Orvane Labs"), name);
    CFSUtils::ForceDirectories(path.c_str());
    return path;
}

}  // namespace

CAppOptionsRepository::CAppOptionsRepository() {
    SetDefaults();
    ComputeFileAssociations();
    for (int csidl : {CSIDL_WINDOWS, CSIDL_PROGRAM_FILES, CSIDL_INTERNET_CACHE}) {
        std::wstring folder = ShellFolder(csidl);
        if (!folder.empty()) ExcludeLocations.push_back(folder);
    }
    MakeFolders();
    Read();
}

CAppOptionsRepository::CAppOptionsRepository(CAppOptionsRepository *source) {
    SetDefaults();
    if (source) Copy(source);
}

CAppOptionsRepository::~CAppOptionsRepository() = default;

void CAppOptionsRepository::SetDefaults() {
    ViewFlat = true;
    ViewState = 3;
    CheckForUpdates = true;
    RecentListSize = 5;
    DeleteSrc = false;
    DeleteArcAfterExpand = false;
    CompressOrig = true;
    CompressArcs = false;
    UseEncryption = false;
    ForkHandling = 0;
    ExpandFolderOptions = 0;
    EnableContextMenu = true;
    FormatType = 0;
    UseSmartArchiving = true;
    UseWizard = false;
    ExpandConflictMethod = 0;
    ExpandMergeContents = true;
    AddConflictMethod = 7;
    AddMergeContents = true;
    WizardDeleteArchiveAfterExpansion = false;
    WizardShowSchedulerPage = true;
    AVOption = 0;
    ShowArcNameWarningMsg = true;
    CompressFolderMethod = 0;
    ExpandFolderMethod = 0;
    DblClickAction = 1;
    UseQuickToolsOpen = true;
    ThumbnailSize = 96;
    ThumbnailLimit = 4194304;
    UseSmartSend = true;
    SmartSendSizeTrigger = 5242880;
    SmartSendService = 1;
    AutoOpenExpandFolder = true;
    UnstoredFlag = false;
    ShowDropDblClickMsg = true;
}

void CAppOptionsRepository::MakeFolders() {
    TempFolder = MakeProductFolder(L"Temp");
    WizardTaskFolder = MakeProductFolder(L"WizardTasks");
    ArchiveIndexFolder = MakeProductFolder(L"ArchiveIndexes");
    std::wstring myArchives = CFSUtils::GetMyArchivesFolder();
    CFSUtils::ForceDirectories(myArchives.c_str());
    DefaultCompressFolder = myArchives;
    LocationHistory.push_back(myArchives);
}

void CAppOptionsRepository::ComputeFileAssociations() {
    for (FILEASSOCIATION &entry : FileAssociations.entries)
        entry.associated = IsAssociatedWithVarnick(entry.type) ? TRUE : FALSE;
}

void CAppOptionsRepository::Read() {
    OptionKey root(L"");
    ReadFields(*this, root, RootFields());
    ComputeFileAssociations();
    ReadRegistryList(ListKeyPath(kExcludeLocations), ExcludeLocations);
    ReadRegistryList(ListKeyPath(kSmartSendExtTriggers), SmartSendExtTriggers);
    for (const RegistryGroup &group : RegistryGroups()) {
        OptionKey key(group.subKey);
        ReadFields(*this, key, group.fields);
        if (std::wstring(group.subKey) == L"\\StartActivity")
            ReadRegistryList(RootPlus(kLocationHistoryKey), LocationHistory);
    }
}

void CAppOptionsRepository::Save() {
    // The root is not created here: its values are lost while the key does
    // not exist yet.
    OptionKey root(L"");
    WriteFields(*this, root, RootFields());
    SaveRegistryList(ListKeyPath(kExcludeLocations), ExcludeLocations);
    SaveRegistryList(ListKeyPath(kSmartSendExtTriggers), SmartSendExtTriggers);
    for (const RegistryGroup &group : RegistryGroups()) {
        OptionKey key(group.subKey, true);
        WriteFields(*this, key, group.fields);
        if (std::wstring(group.subKey) == L"\\StartActivity")
            SaveRegistryList(RootPlus(kLocationHistoryKey), LocationHistory);
    }
}

void CAppOptionsRepository::SaveNonOptions() {
    OptionKey key(L"\\StartActivity", true);
    key.Write(L"ShowDropDblClickMsg", ShowDropDblClickMsg);
}

void CAppOptionsRepository::Copy(CAppOptionsRepository *source) {
    if (!source || source == this) return;
    // An empty history of the source keeps this one's.
    std::vector<std::wstring> history =
        source->LocationHistory.empty() ? LocationHistory : source->LocationHistory;
    ViewFlat = source->ViewFlat;
    ViewState = source->ViewState;
    CheckForUpdates = source->CheckForUpdates;
    RecentListSize = source->RecentListSize;
    FileAssociations = source->FileAssociations;
    ExcludeLocations = source->ExcludeLocations;
    DeleteSrc = source->DeleteSrc;
    DeleteArcAfterExpand = source->DeleteArcAfterExpand;
    CompressOrig = source->CompressOrig;
    CompressArcs = source->CompressArcs;
    UseEncryption = source->UseEncryption;
    ForkHandling = source->ForkHandling;
    ExpandFolderOptions = source->ExpandFolderOptions;
    EnableContextMenu = source->EnableContextMenu;
    FormatType = source->FormatType;
    UseSmartArchiving = source->UseSmartArchiving;
    UseWizard = source->UseWizard;
    TempFolder = source->TempFolder;
    ExpandConflictMethod = source->ExpandConflictMethod;
    ExpandMergeContents = source->ExpandMergeContents;
    AddConflictMethod = source->AddConflictMethod;
    AddMergeContents = source->AddMergeContents;
    WizardDeleteArchiveAfterExpansion = source->WizardDeleteArchiveAfterExpansion;
    WizardShowSchedulerPage = source->WizardShowSchedulerPage;
    WizardTaskFolder = source->WizardTaskFolder;
    AVPath = source->AVPath;
    AVOption = source->AVOption;
    ArchiveIndexFolder = source->ArchiveIndexFolder;
    ShowArcNameWarningMsg = source->ShowArcNameWarningMsg;
    LocationHistory = std::move(history);
    CompressFolderMethod = source->CompressFolderMethod;
    DefaultCompressFolder = source->DefaultCompressFolder;
    DefaultExpandFolder = source->DefaultExpandFolder;
    ExpandFolderMethod = source->ExpandFolderMethod;
    DblClickAction = source->DblClickAction;
    UseQuickToolsOpen = source->UseQuickToolsOpen;
    ThumbnailSize = source->ThumbnailSize;
    ThumbnailLimit = source->ThumbnailLimit;
    DropletLocation = source->DropletLocation;
    UseSmartSend = source->UseSmartSend;
    SmartSendExtTriggers = source->SmartSendExtTriggers;
    SmartSendSizeTrigger = source->SmartSendSizeTrigger;
    SmartSendService = source->SmartSendService;
    SmartSendFTPProfile = source->SmartSendFTPProfile;
    AutoOpenExpandFolder = source->AutoOpenExpandFolder;
    UnstoredFlag = source->UnstoredFlag;
    ShowDropDblClickMsg = source->ShowDropDblClickMsg;
}

void CAppOptionsRepository::SaveToIni(const wchar_t *path) {
    CIniFile ini(path);
    for (const NamedField &f : JobFileFields()) SaveIniField(ini, *this, f);
    SaveIniList(ini, kExcludeLocations, ExcludeLocations);
    SaveIniList(ini, kSmartSendExtTriggers, SmartSendExtTriggers);
    ini.Save();
}

void CAppOptionsRepository::ReadFromIni(const wchar_t *path) {
    CIniFile ini(path);
    for (const NamedField &f : JobFileFields()) ReadIniField(ini, *this, f);
    LocationHistory.clear();
    ReadIniList(ini, kExcludeLocations, ExcludeLocations);
    ReadIniList(ini, kSmartSendExtTriggers, SmartSendExtTriggers);
    ComputeFileAssociations();
}
