// Runs the virus scanner the user chose (CAppOptionsRepository::AVOption:
// 1, 2, 3 a scanner found through its App Paths key, 4 the program in
// AVPath) over the files of an operation. Nothing waits for the scanner and
// nothing is reported: a missing scanner scans nothing.
#pragma once

#include <string>

#include "CAppUtils.h"

class CAppOptionsRepository;

class CVirusScanHandling {
public:
    // `options` is borrowed.
    explicit CVirusScanHandling(CAppOptionsRepository *options);
    virtual ~CVirusScanHandling();

    // `files` is borrowed for the call.
    void Scan(STDStringList *files);

private:
    // Quotes every file into one argument line; a line that would reach
    // 2,000 characters is replaced by the first file's folder.
    void DoScan();
    void ScanWithNorton();
    void ScanWithMcAfee();
    void ScanWithETrust();
    void ScanWithCustom();
    void ScanWithAppPath(const wchar_t *executable);

    CAppOptionsRepository *options;
    STDStringList *files;
    std::wstring scannerPath;
};
