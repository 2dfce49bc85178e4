// File associations: which archive kinds the shell opens with this
// product. Claiming an extension keeps what stood there below the product's
// ProgID (ProgID\extension); releasing it puts that back. All keys lie in
// HKEY_CLASSES_ROOT.
#pragma once

#include <cstddef>

#include "FormatCatalogue.h"
#include "platform/WinTypes.h"

// The kinds that can be associated, in the order of the association table and
// of the rows of the association dialog. Only a kind in this list can be
// associated.
inline constexpr std::size_t kFileAssociationCount = 39;
inline constexpr format::type kFileAssociationTypes[kFileAssociationCount] = {
    format::vnkx, format::vidx,   format::vnk,   format::zip, format::tar,  format::tbz2,
    format::tgz,  format::tz,     format::tlzma, format::arc, format::arj,  format::lha,
    format::lzh,  format::sevenz, format::rar,   format::bz2, format::gz,   format::z,
    format::lzma, format::cab,    format::hqx,   format::b64, format::mime, format::mim,
    format::mme,  format::bin,    format::apple, format::uue, format::uu,   format::ync,
    format::yenc, format::ntx,    format::sea,   format::cbz, format::cbr,  format::cbt,
    format::gtar, format::gnutar, format::ustar,
};

// One row of the association table: the kind, and whether it is (or is
// wanted to be) associated with this product.
struct FILEASSOCIATION {
    BOOL associated;
    format::type type;
};

// The association table: one entry per kind of kFileAssociationTypes, in
// that order.
struct FILEASSOCIATIONS {
    // Every entry not associated, with its kind from kFileAssociationTypes.
    FILEASSOCIATIONS();

    FILEASSOCIATION entries[kFileAssociationCount];
};

// The ProgIDs of the product all begin with this text.
inline constexpr const wchar_t kVarnickProgIdPrefix[] = L"Varnick.Archive.Open";

// Whether the extension of `type` names one of the product's ProgIDs. False
// for a kind outside kFileAssociationTypes or without an extension.
bool IsAssociatedWithVarnick(format::type type);

// Claims (`on` nonzero) or releases the extension of `type`. True when
// something was done or the kind has no extension; false when the state was
// already the wanted one. Registry failures are not reported: a change that
// could not be written still gives true. The bool is not used.
bool SetFileAssociation(format::type type, int on, bool unused);

// SetFileAssociation for every entry of the table, in order.
void SaveAllFileAssociations(FILEASSOCIATIONS *associations);
