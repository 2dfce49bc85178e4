// The product's ProgIDs for archives: what the shell shows for a class of
// formats and how it opens them. Kept together so that the keys written at
// set-up and the ProgID an extension is pointed at cannot drift apart.
#pragma once

#include <cstddef>

#include "FormatCatalogue.h"
#include "platform/WinTypes.h"

struct ArchiveProgId {
    const wchar_t *name;
    UINT displayNameId;  // string id of the shell's type name
    int iconIndex;       // icon of the non-localized resource library
};

inline constexpr std::size_t kArchiveProgIdCount = 9;
inline constexpr ArchiveProgId kArchiveProgIds[kArchiveProgIdCount] = {
    {L"Varnick.Archive.Open.Zip", 966, 6},     {L"Varnick.Archive.Open.Vnk", 967, 3},
    {L"Varnick.Archive.Open.Vnkx", 968, 4},    {L"Varnick.Archive.Open.Vidx", 968, 4},
    {L"Varnick.Archive.Open.Tar", 970, 5},     {L"Varnick.Archive.Open.Rar", 969, 7},
    {L"Varnick.Archive.Open.Cab", 1037, 2},    {L"Varnick.Archive.Open.7Zip", 1038, 2},
    {L"Varnick.Archive.Open.Generic", 405, 2},
};

// The verb text of every archive ProgID.
inline constexpr UINT kOpenVerbStringId = 406;

// The ProgID an extension of `type` points at. Cab and 7z have ProgIDs of
// their own that no type uses: they open through the generic one.
const wchar_t *ArchiveProgIdOf(format::type type);
