#include "CChangeFileAssociations.h"

#include <string>

#include "CAppOptionsRepository.h"
#include "CAppUtils.h"
#include "CRegistry.h"
#include "FileAssociations.h"
#include "platform/Dialog.h"

namespace {

constexpr int kColumnCount = 3;
constexpr UINT kColumnTitleIds[kColumnCount] = {361, 362, 363};
constexpr int kColumnWidths[kColumnCount] = {110, 70, 140};

// LVCF_FMT | LVCF_WIDTH | LVCF_TEXT.
constexpr UINT kColumnFields = 0x0007;
constexpr UINT kCheckedStateIndex = 2;
constexpr DWORD kCurrentUser = 0;

// The texts of each row (kind, extension, class), in the order of the
// association table.
constexpr UINT kRowStringIds[kFileAssociationCount][kColumnCount] = {
    {367, 368, 366},  {367, 1184, 366}, {372, 373, 366},    {364, 365, 366},    {374, 375, 366},
    {950, 956, 366},  {951, 957, 366},  {952, 758, 366},    {1533, 1534, 1172}, {378, 379, 1172},
    {953, 942, 1172}, {384, 385, 1172}, {954, 943, 1172},   {376, 377, 371},    {388, 389, 1172},
    {380, 381, 366},  {386, 387, 366},  {390, 391, 366},    {1531, 1532, 1172}, {382, 383, 371},
    {394, 395, 1172}, {392, 393, 371},  {955, 944, 371},    {955, 945, 371},    {955, 946, 371},
    {400, 401, 1172}, {369, 402, 1172}, {398, 947, 1172},   {398, 399, 1172},   {403, 948, 1172},
    {403, 404, 1172}, {403, 949, 1172}, {1120, 1121, 1172}, {364, 510, 366},    {388, 1133, 366},
    {374, 1134, 366}, {374, 1135, 366}, {374, 1136, 366},   {374, 1137, 366},
};

void SetRowCheck(HWND list, int row, bool checked) {
    ListView_SetItemState(
        list, row,
        checked ? CChangeFileAssociations::kCheckedState : CChangeFileAssociations::kUncheckedState,
        LVIS_STATEIMAGEMASK);
}

bool RowChecked(HWND list, int row) {
    const auto state = static_cast<UINT>(
        SendMessageW(list, LVM_GETITEMSTATE, static_cast<WPARAM>(row), LVIS_STATEIMAGEMASK));
    return (state >> 12) == kCheckedStateIndex;
}

}  // namespace

CChangeFileAssociations::CChangeFileAssociations(HWND parent)
    : parent(parent), options(std::make_unique<CAppOptionsRepository>()) {}

CChangeFileAssociations::~CChangeFileAssociations() = default;

bool CChangeFileAssociations::Run() {
    return DialogBoxParamW(CAppUtils::GetCommonHINST(), MAKEINTRESOURCEW(kTemplateId), parent,
                           DialogProc, reinterpret_cast<LPARAM>(this)) == 1;
}

INT_PTR CChangeFileAssociations::DialogProc(HWND dialog, UINT message, WPARAM wParam,
                                            LPARAM lParam) {
    auto *self = platform::DialogObject(dialog, message, lParam, &CChangeFileAssociations::window);
    if (!self) return FALSE;
    switch (message) {
        case WM_INITDIALOG:
            return self->OnInitDialog();
        case WM_COMMAND:
            self->OnCommand(LOWORD(wParam));
            return TRUE;
        default:
            return FALSE;
    }
}

HWND CChangeFileAssociations::List() const { return GetDlgItem(window, IDC_ASSOCIATION_LIST); }

BOOL CChangeFileAssociations::OnInitDialog() {
    CAppUtils::CenterDlgOverParent(window, parent);
    SendMessageW(List(), LVM_SETEXTENDEDLISTVIEWSTYLE, 0, LVS_EX_CHECKBOXES);
    AddColumns();
    AddRows();
    InvertRequestedRow();
    return TRUE;
}

void CChangeFileAssociations::AddColumns() {
    for (int column = 0; column < kColumnCount; ++column) {
        std::wstring title = CAppUtils::LoadString(kColumnTitleIds[column]);
        LVCOLUMNW entry{};
        entry.mask = kColumnFields;
        entry.cx = kColumnWidths[column];
        entry.pszText = title.data();
        entry.iSubItem = column;
        SendMessageW(List(), LVM_INSERTCOLUMNW, static_cast<WPARAM>(column),
                     reinterpret_cast<LPARAM>(&entry));
    }
}

void CChangeFileAssociations::AddRows() {
    HWND list = List();
    for (std::size_t row = 0; row < kFileAssociationCount; ++row) {
        std::wstring name = CAppUtils::LoadString(kRowStringIds[row][0]);
        LVITEMW item{};
        item.mask = LVIF_TEXT;
        item.iItem = static_cast<int>(row);
        item.pszText = name.data();
        const int index = ListView_InsertItem(list, &item);
        for (int column = 1; column < kColumnCount; ++column) {
            std::wstring text = CAppUtils::LoadString(kRowStringIds[row][column]);
            ListView_SetItemText(list, index, column, text.data());
        }
        SetRowCheck(list, index, options->FileAssociations.entries[row].associated != FALSE);
    }
}

void CChangeFileAssociations::InvertRequestedRow() {
    CRegistry request;
    request.SetMajorKey(kCurrentUser);
    request.SetAppKey(kRequestKey);
    DWORD row = 0;
    if (!request.GetRegSetting(kRequestValue, &row)) return;
    if (row < kFileAssociationCount) {
        HWND list = List();
        SetRowCheck(list, static_cast<int>(row), !RowChecked(list, static_cast<int>(row)));
    }
    request.RemoveKey();
}

void CChangeFileAssociations::CheckAllRows(bool checked) {
    HWND list = List();
    const int rows = ListView_GetItemCount(list);
    for (int row = 0; row < rows; ++row) SetRowCheck(list, row, checked);
}

void CChangeFileAssociations::ApplyChecks() {
    HWND list = List();
    FILEASSOCIATIONS &table = options->FileAssociations;
    for (std::size_t row = 0; row < kFileAssociationCount; ++row) {
        table.entries[row] = FILEASSOCIATION{RowChecked(list, static_cast<int>(row)) ? TRUE : FALSE,
                                             kFileAssociationTypes[row]};
    }
    SaveAllFileAssociations(&table);
}

void CChangeFileAssociations::OnCommand(WORD id) {
    switch (id) {
        case IDC_UNCHECK_ALL:
            CheckAllRows(false);
            break;
        case IDC_CHECK_ALL:
            CheckAllRows(true);
            break;
        case IDOK:
            ApplyChecks();
            EndDialog(window, 1);
            break;
        case IDCANCEL:
            EndDialog(window, 0);
            break;
        default:
            break;
    }
}
