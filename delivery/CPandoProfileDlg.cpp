#include "CPandoProfileDlg.h"

#include "delivery/ProfileDialogParts.h"

CPandoProfileDlg::CPandoProfileDlg(HWND parent) : parent(parent) {}

CPandoProfileDlg::~CPandoProfileDlg() { delivery::DestroyProfilePanel(window); }

bool CPandoProfileDlg::Run(const RECT *rect) {
    window = delivery::CreateProfilePanel(parent, kTemplateId, rect);
    return window != nullptr;
}
