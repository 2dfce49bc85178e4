#include "platform/HeadlessUiHost.h"

namespace platform {

namespace {

template <class Prompt>
std::size_t ScriptIndex() {
    return PromptRequest(Prompt{}).index();
}

void Fill(PromptRecord &record, const std::wstring &text) { record.text = text; }
void Fill(PromptRecord &record, int choice) { record.choice = choice; }
void Fill(PromptRecord &record, const FolderDeleteAnswer &answer) { record.folderDelete = answer; }

}  // namespace

void HeadlessUiHost::RunWhileShown() {
    std::function<void()> action;
    {
        std::lock_guard lock(mutex_);
        action = whileShown_;
    }
    // Outside the lock: the action may show boxes of its own or wait for
    // another thread that does.
    if (action) action();
}

std::optional<PromptAnswer> HeadlessUiHost::AnswerPrompt(const PromptRequest &request) {
    RunWhileShown();
    std::lock_guard lock(mutex_);
    Script &script = scripts_[request.index()];
    std::optional<PromptAnswer> answer;
    if (!script.empty()) {
        answer = script.front();
        script.pop_front();
    }
    PromptRecord record;
    record.request = request;
    if (answer) {
        record.refused = false;
        std::visit([&](const auto &value) { Fill(record, value); }, *answer);
    }
    prompts_.push_back(std::move(record));
    return answer;
}

template <class Prompt>
void HeadlessUiHost::Queue(std::optional<PromptAnswer> answer) {
    std::lock_guard lock(mutex_);
    scripts_[ScriptIndex<Prompt>()].push_back(std::move(answer));
}

int HeadlessUiHost::MessageBox(HWND owner, const std::wstring &text, const std::wstring &caption,
                               UINT flags) {
    RunWhileShown();
    std::lock_guard lock(mutex_);
    int answer = DefaultMessageBoxAnswer(flags);
    if (!answers_.empty()) {
        answer = answers_.front();
        answers_.pop_front();
    }
    recorded_.push_back(MessageBoxRecord{owner, text, caption, flags, answer});
    return answer;
}

void HeadlessUiHost::QueueAnswer(int answer) {
    std::lock_guard lock(mutex_);
    answers_.push_back(answer);
}

namespace {

template <class Value>
std::optional<PromptAnswer> Wrap(std::optional<Value> value) {
    if (!value) return std::nullopt;
    return PromptAnswer(std::move(*value));
}

}  // namespace

void HeadlessUiHost::QueuePassword(std::optional<std::wstring> password) {
    Queue<PasswordPrompt>(Wrap(std::move(password)));
}

void HeadlessUiHost::QueueConflictAction(std::optional<int> action) {
    Queue<ConflictPrompt>(Wrap(action));
}

void HeadlessUiHost::QueueFolderDelete(std::optional<FolderDeleteAnswer> answer) {
    Queue<FolderDeletePrompt>(Wrap(answer));
}

void HeadlessUiHost::QueueDirectory(std::optional<std::wstring> folder) {
    Queue<DirectoryPrompt>(Wrap(std::move(folder)));
}

void HeadlessUiHost::QueueSaveFile(std::optional<std::wstring> file) {
    Queue<SaveFilePrompt>(Wrap(std::move(file)));
}

void HeadlessUiHost::QueueArchiveLocation(std::optional<std::wstring> file) {
    Queue<ArchiveLocationPrompt>(Wrap(std::move(file)));
}

void HeadlessUiHost::QueueNextDisk(std::optional<std::wstring> folder) {
    Queue<NextDiskPrompt>(Wrap(std::move(folder)));
}

void HeadlessUiHost::QueueArcNameConflict(std::optional<int> choice) {
    Queue<ArcNameConflictPrompt>(Wrap(choice));
}

void HeadlessUiHost::WhileShown(std::function<void()> action) {
    std::lock_guard lock(mutex_);
    whileShown_ = std::move(action);
}

bool HeadlessUiHost::ShowText(HWND owner, const std::wstring &title, const std::wstring &text) {
    std::lock_guard lock(mutex_);
    texts_.push_back(TextRecord{owner, title, text});
    return false;
}

std::vector<MessageBoxRecord> HeadlessUiHost::Recorded() const {
    std::lock_guard lock(mutex_);
    return recorded_;
}

std::vector<PromptRecord> HeadlessUiHost::Prompts() const {
    std::lock_guard lock(mutex_);
    return prompts_;
}

std::vector<TextRecord> HeadlessUiHost::Texts() const {
    std::lock_guard lock(mutex_);
    return texts_;
}

void HeadlessUiHost::Reset() {
    std::lock_guard lock(mutex_);
    answers_.clear();
    for (Script &script : scripts_) script.clear();
    whileShown_ = nullptr;
    recorded_.clear();
    prompts_.clear();
    texts_.clear();
}

}  // namespace platform
