#include "CSchedulerTaskRepository.h"

#include <cstring>
#include <cwchar>

#include "CCrypto.h"
#include "CIniFile.h"
#include "platform/Debugger.h"
#include "platform/Win32.h"

namespace {

constexpr const wchar_t *kSection = L"Scheduler";
// Text buffers of the reads, in characters.
constexpr unsigned kTextChars = 1024;
// The comment shown for a task that has none of its own.
constexpr UINT kDefaultCommentId = 649;

// The text of a key, or null when the key is missing.
const wchar_t *ReadText(CIniFile &ini, const wchar_t *name, wchar_t (&buffer)[kTextChars]) {
    buffer[0] = L'\0';
    return ini.GetString(kSection, name, buffer, kTextChars) ? buffer : nullptr;
}

void ReadTextInto(CIniFile &ini, const wchar_t *name, std::wstring &member) {
    wchar_t buffer[kTextChars];
    if (ReadText(ini, name, buffer)) member = buffer;
}

// Hexadecimal bytes into `data`. A value with more digits than `size` bytes
// need is not taken: decoding it would write past the record.
bool ReadBytes(CIniFile &ini, const wchar_t *name, void *data, std::size_t size) {
    wchar_t buffer[kTextChars];
    const wchar_t *text = ReadText(ini, name, buffer);
    if (!text || std::wcslen(text) > 2 * size) return false;
    return ini.GetStruct(kSection, name, data);
}

std::wstring Encipher(const std::wstring &plain) {
    wchar_t hex[kTextChars] = {};
    CCrypto crypto;
    crypto.EncryptString(plain.c_str(), hex, kTextChars);
    return hex;
}

std::wstring Decipher(const wchar_t *hex) {
    wchar_t plain[kTextChars] = {};
    CCrypto crypto;
    crypto.DecryptString(hex, plain, kTextChars);
    return plain;
}

}  // namespace

CSchedulerTaskRepository::CSchedulerTaskRepository(HINSTANCE module, const wchar_t *taskFile)
    : m_hModule(module), m_WizardType(0), m_AtShutdown(false) {
    m_TaskFile = taskFile ? taskFile : L"";
    SetDefaultTrigger();
    Read();
}

CSchedulerTaskRepository::CSchedulerTaskRepository() { DebugBreak(); }

CSchedulerTaskRepository::CSchedulerTaskRepository(const CSchedulerTaskRepository &other) = default;

CSchedulerTaskRepository &CSchedulerTaskRepository::operator=(
    const CSchedulerTaskRepository &other) = default;

CSchedulerTaskRepository::~CSchedulerTaskRepository() = default;

void CSchedulerTaskRepository::SetDefaultTrigger() {
    std::memset(&m_Trigger, 0, sizeof m_Trigger);
    m_Trigger.cbTriggerSize = sizeof m_Trigger;
    m_Trigger.TriggerType = TASK_TIME_TRIGGER_ONCE;
    SYSTEMTIME now{};
    GetLocalTime(&now);
    m_Trigger.wBeginYear = now.wYear;
    m_Trigger.wBeginMonth = now.wMonth;
    m_Trigger.wBeginDay = now.wDay;
    m_Trigger.wStartHour = now.wHour;
    m_Trigger.wStartMinute = now.wMinute;
}

void CSchedulerTaskRepository::Read() {
    CIniFile ini(m_TaskFile.c_str());

    m_WizardType = 0;
    ini.GetBool(kSection, L"AtShutdown", &m_AtShutdown);
    unsigned int wizardType = 0;
    if (ini.GetInt(kSection, L"WizardType", &wizardType))
        m_WizardType = static_cast<int>(wizardType);

    ReadTextInto(ini, L"LastRunLog", m_LogFile);
    ReadTextInto(ini, L"TaskName", m_TaskName);
    ReadTextInto(ini, L"AccntName", m_AccountName);

    wchar_t buffer[kTextChars];
    if (const wchar_t *hex = ReadText(ini, L"DateTimeStruct", buffer))
        m_AccountPassword = Decipher(hex);

    const wchar_t *comment = ReadText(ini, L"Comment", buffer);
    if (!comment || !*comment) LoadStringW(m_hModule, kDefaultCommentId, buffer, kTextChars);
    m_Comment = buffer;

    std::memset(&m_LastRun, 0, sizeof m_LastRun);
    ReadBytes(ini, L"LastRun", &m_LastRun, sizeof m_LastRun);
    std::memset(&m_NextRun, 0, sizeof m_NextRun);
    ReadBytes(ini, L"NextRun", &m_NextRun, sizeof m_NextRun);

    ReadTextInto(ini, L"TriggerDescription", m_TriggerDescription);

    TASK_TRIGGER trigger{};
    ReadBytes(ini, L"Trigger", &trigger, sizeof trigger);
    if (trigger.cbTriggerSize != 0) m_Trigger = trigger;

    ReadTextInto(ini, L"LogFile", m_LogFile);
}

void CSchedulerTaskRepository::Save() {
    CIniFile ini(m_TaskFile.c_str());
    ini.SetBool(kSection, L"AtShutdown", m_AtShutdown);
    ini.SetInt(kSection, L"WizardType", static_cast<unsigned int>(m_WizardType));
    ini.SetString(kSection, L"LastRunLog", m_LogFile.c_str());
    ini.SetString(kSection, L"TaskName", m_TaskName.c_str());
    ini.SetString(kSection, L"ApplicationName", m_TaskFile.c_str());
    ini.SetString(kSection, L"AccntName", m_AccountName.c_str());
    ini.SetString(kSection, L"DateTimeStruct", Encipher(m_AccountPassword).c_str());
    ini.SetString(kSection, L"Comment", m_Comment.c_str());
    ini.SetStruct(kSection, L"LastRun", &m_LastRun, sizeof m_LastRun);
    ini.SetStruct(kSection, L"NextRun", &m_NextRun, sizeof m_NextRun);
    ini.SetString(kSection, L"TriggerDescription", m_TriggerDescription.c_str());
    ini.SetStruct(kSection, L"Trigger", &m_Trigger, sizeof m_Trigger);
    ini.Save();
}

void CSchedulerTaskRepository::SaveLogFile() {
    CIniFile ini(m_TaskFile.c_str());
    ini.SetString(kSection, L"LogFile", m_LogFile.c_str());
    ini.Save();
}

void CSchedulerTaskRepository::Copy(CSchedulerTaskRepository *source) {
    if (source && source != this) *this = *source;
}
