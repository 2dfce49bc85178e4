#include "CEngine.h"

#include <string>

#include "CLogging.h"
#include "platform/Win32.h"

namespace {

constexpr wchar_t kSourceUnit[] = L".\\CEngine";
// The product's licence, shown to the engine when a session opens.
constexpr char kEngineLicence[] = "Orvane Labs Varnick 14";

// The version of `engine` (null: without a session) as text, "" when the
// engine cannot tell.
std::wstring VersionText(OpaqueEngineObject *engine) {
    uint16_t major = 0;
    uint16_t minor = 0;
    uint16_t revision = 0;
    uint16_t build = 0;
    if (GetVersionInfo(engine, &major, &minor, &revision, &build) != kEngineOK) return L"";
    return FormatW(L"%d.%d.%d.%d", major, minor, revision, build);
}

}  // namespace

CEngine::CEngine() { Open(); }

CEngine::~CEngine() {
    if (engine_) CloseVarnickEngine(engine_);
}

void CEngine::Open() {
    EngineResult result = OpenVarnickEngine(&engine_, kEngineLicence);
    if (result != kEngineOK) {
        engine_ = nullptr;
        CLogging::Err(L"CEngine::Open", __LINE__, kSourceUnit, static_cast<unsigned>(result), true,
                      L"OpenVarnickEngine()");
    }
    // The session's defaults; a failed open makes them fail too, unseen.
    SetEngineBooleanProperty(engine_, kEnginePropUseThreads, true);
    SetEngineBooleanProperty(engine_, kEnginePropIgnoreReturnReceipts, true);
    SetEngineBooleanProperty(engine_, kEnginePropSaveComments, true);
    SetEngineIntegerProperty(engine_, kEnginePropExpansionOptions, 0);
    open_ = true;
}

void CEngine::Close() {
    if (!engine_) return;
    CloseVarnickEngine(engine_);
    engine_ = nullptr;
    open_ = false;
}

const wchar_t *CEngine::GetEngineVersion() const {
    static std::wstring version;
    version = VersionText(engine_);
    return version.c_str();
}

const wchar_t *GetEngineVersion() {
    static std::wstring version;
    version = VersionText(nullptr);
    return version.c_str();
}
