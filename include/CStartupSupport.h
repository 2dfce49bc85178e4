// First-run set-up of the product. So far: the shell's classes for archives
// and scheduled tasks.
#pragma once

class CStartupSupport {
public:
    // Writes the product's archive ProgIDs (type name, icon, open verb and
    // command) and the class of ".varnicktask" files, in HKEY_CLASSES_ROOT.
    // No archive extension is touched. Write failures are not reported.
    static void SetGeneralFileAssociationStrings();
};
