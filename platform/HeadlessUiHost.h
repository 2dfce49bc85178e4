// The host that shows nothing: the default, and the one tests script.
#pragma once

#include <array>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/UiHost.h"

namespace platform {

// One message box as a host was asked to show it, and what it answered.
struct MessageBoxRecord {
    HWND owner = nullptr;
    std::wstring text;
    std::wstring caption;
    UINT flags = 0;
    int answer = 0;
};

// One text a dialog handed over to be shown.
struct TextRecord {
    HWND owner = nullptr;
    std::wstring title;
    std::wstring text;
};

// One prompt as a host was asked to show it, and what it answered.
struct PromptRecord {
    PromptRequest request;
    bool refused = true;
    std::wstring text;  // the password, folder or file given
    int choice = 0;     // the action or choice given
    FolderDeleteAnswer folderDelete;

    // The prompt, if it was of that kind.
    template <class Prompt>
    const Prompt *As() const {
        return std::get_if<Prompt>(&request);
    }
};

// Records every box and prompt and answers from scripts: one queue of
// answers for message boxes and one for each kind of prompt, used in order.
// A message box with nothing queued gives its default button; a prompt with
// nothing queued (or with a queued refusal, std::nullopt) is refused.
class HeadlessUiHost : public UiHost {
public:
    int MessageBox(HWND owner, const std::wstring &text, const std::wstring &caption,
                   UINT flags) override;
    // Records the text and leaves the dialog standing (false).
    bool ShowText(HWND owner, const std::wstring &title, const std::wstring &text) override;

    // The answer for the next message box.
    void QueueAnswer(int answer);
    // The answers for the next prompts of each kind.
    void QueuePassword(std::optional<std::wstring> password);
    void QueueConflictAction(std::optional<int> action);
    void QueueFolderDelete(std::optional<FolderDeleteAnswer> answer);
    void QueueDirectory(std::optional<std::wstring> folder);
    void QueueSaveFile(std::optional<std::wstring> file);
    void QueueArchiveLocation(std::optional<std::wstring> file);
    void QueueNextDisk(std::optional<std::wstring> folder);
    void QueueArcNameConflict(std::optional<int> choice);

    // Runs on the asking thread each time a box or prompt stands, before it
    // is answered: what a user would do meanwhile. Null removes it.
    void WhileShown(std::function<void()> action);

    // Every box, and every prompt, shown so far, oldest first.
    std::vector<MessageBoxRecord> Recorded() const;
    std::vector<PromptRecord> Prompts() const;
    std::vector<TextRecord> Texts() const;
    // Forgets the records, the queued answers and the WhileShown action.
    void Reset();

protected:
    // Every prompt: records it and answers from its kind's script.
    std::optional<PromptAnswer> AnswerPrompt(const PromptRequest &request) override;

private:
    using Script = std::deque<std::optional<PromptAnswer>>;

    template <class Prompt>
    void Queue(std::optional<PromptAnswer> answer);
    void RunWhileShown();

    mutable std::mutex mutex_;
    std::deque<int> answers_;
    std::array<Script, std::variant_size_v<PromptRequest>> scripts_;
    std::function<void()> whileShown_;
    std::vector<MessageBoxRecord> recorded_;
    std::vector<PromptRecord> prompts_;
    std::vector<TextRecord> texts_;
};

}  // namespace platform
