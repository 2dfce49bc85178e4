#include "CNewArchiveContentList.h"

#include <string>

#include "CIniFile.h"
#include "platform/WinFile.h"

namespace {

constexpr const wchar_t *kFilterSection = L"FolderFilter";
constexpr unsigned kPathChars = 1024;

void SavePaths(CIniFile &ini, const wchar_t *section, const std::vector<std::wstring> &paths) {
    for (std::size_t i = 0; i < paths.size(); ++i)
        ini.SetString(section, std::to_wstring(i).c_str(), paths[i].c_str());
}

// Appends the section's paths that exist now, in file order; the names do
// not matter and a path that has gone is dropped.
void ReadPaths(CIniFile &ini, const wchar_t *section, std::vector<std::wstring> &paths) {
    for (const wchar_t *name = ini.GetFirstName(section); name; name = ini.GetNextName()) {
        wchar_t path[kPathChars] = {};
        ini.GetString(section, name, path, kPathChars);
        if (PathFileExistsW(path)) paths.push_back(path);
    }
}

}  // namespace

CNewArchiveContentList::~CNewArchiveContentList() { delete Filter; }

void CNewArchiveContentList::GetNewFilterObject() {
    delete Filter;
    Filter = new CFilterObject();
}

void CNewArchiveContentList::DisposeOfFilterObject() {
    delete Filter;
    Filter = nullptr;
}

bool CNewArchiveContentList::SaveToIni(const wchar_t *path) {
    {
        CIniFile ini(path);
        ini.SetBool(L"ArchiveInfo", L"OneArchivePerItem", OneArchivePerItem);
        ini.SetBool(L"ArchiveInfo", L"Timestamp", Timestamp);
        ini.SetInt64(L"ArchiveInfo", L"SegmentSize", SegmentSize);
        ini.SetBool(L"Format", L"MakeIndex", MakeIndex);
        SavePaths(ini, L"FilesToInclude", Files);
        SavePaths(ini, L"FoldersToInclude", Folders);
        ini.SetString(kFilterSection, L"FolderFilterState", Filter ? L"1" : L"0");
        ini.Save();
    }
    // The filter opens the file anew, so it has to come after the save above.
    if (Filter) Filter->SaveToIni(kFilterSection, path);
    return true;
}

bool CNewArchiveContentList::ReadFromIni(const wchar_t *path) {
    bool hasFilter = false;
    {
        CIniFile ini(path);
        ini.GetBool(L"ArchiveInfo", L"OneArchivePerItem", &OneArchivePerItem);
        ini.GetBool(L"ArchiveInfo", L"Timestamp", &Timestamp);
        ini.GetInt64(L"ArchiveInfo", L"SegmentSize", &SegmentSize);
        ini.GetBool(L"Format", L"MakeIndex", &MakeIndex);
        ReadPaths(ini, L"FilesToInclude", Files);
        ReadPaths(ini, L"FoldersToInclude", Folders);
        ini.GetBool(kFilterSection, L"FolderFilterState", &hasFilter);
    }
    if (hasFilter) {
        if (!Filter) Filter = new CFilterObject();
        Filter->ReadFromIni(kFilterSection, path);
    }
    return true;
}
