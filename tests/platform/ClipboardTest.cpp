#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/WinUser.h"

namespace {

HGLOBAL WideTextBlock(const std::wstring &text) {
    SIZE_T size = (text.size() + 1) * sizeof(wchar_t);
    HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, size);
    std::memcpy(GlobalLock(block), text.c_str(), size);
    GlobalUnlock(block);
    return block;
}

std::string NarrowText(HANDLE block) {
    std::string text(static_cast<const char *>(GlobalLock(block)));
    GlobalUnlock(block);
    return text;
}

}  // namespace

TEST(GlobalMemory, MoveableBlocksLockAndFixedBlocksAreTheirPointer) {
    HGLOBAL moveable = GlobalAlloc(GHND, 16);
    ASSERT_NE(moveable, nullptr);
    EXPECT_EQ(GlobalSize(moveable), 16u);
    auto *bytes = static_cast<BYTE *>(GlobalLock(moveable));
    ASSERT_NE(bytes, nullptr);
    EXPECT_NE(static_cast<void *>(bytes), moveable);
    EXPECT_EQ(bytes[15], 0);
    EXPECT_EQ(GlobalLock(moveable), bytes);
    EXPECT_TRUE(GlobalUnlock(moveable));
    SetLastError(99);
    EXPECT_FALSE(GlobalUnlock(moveable));
    EXPECT_EQ(GetLastError(), NO_ERROR);
    EXPECT_FALSE(GlobalUnlock(moveable));
    EXPECT_EQ(GetLastError(), ERROR_NOT_LOCKED);

    EXPECT_EQ(GlobalFree(moveable), nullptr);
    EXPECT_EQ(GlobalFree(moveable), moveable);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(GlobalSize(moveable), 0u);
    EXPECT_EQ(GlobalLock(moveable), nullptr);

    HGLOBAL fixed = GlobalAlloc(GPTR, 8);
    EXPECT_EQ(GlobalLock(fixed), fixed);
    GlobalFree(fixed);

    HGLOBAL empty = GlobalAlloc(GMEM_MOVEABLE, 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(GlobalLock(empty), nullptr);
    GlobalFree(empty);
}

TEST(Clipboard, TextGoesOnAndComesBackInEveryTextFormat) {
    std::vector<std::wstring> toSystem;
    platform::ClipboardTextHook previous = platform::SetClipboardTextHook(
        [&toSystem](const std::wstring &text) { toSystem.push_back(text); });

    ASSERT_TRUE(OpenClipboard(nullptr));
    ASSERT_TRUE(EmptyClipboard());
    HGLOBAL text = WideTextBlock(L"Größe 12 KB");
    EXPECT_EQ(SetClipboardData(CF_UNICODETEXT, text), text);
    ASSERT_TRUE(CloseClipboard());
    ASSERT_EQ(toSystem.size(), 1u);
    EXPECT_EQ(toSystem[0], L"Größe 12 KB");

    EXPECT_TRUE(IsClipboardFormatAvailable(CF_UNICODETEXT));
    EXPECT_TRUE(IsClipboardFormatAvailable(CF_TEXT));
    EXPECT_FALSE(IsClipboardFormatAvailable(CF_HDROP));
    SetLastError(0);
    EXPECT_EQ(GetClipboardData(CF_UNICODETEXT), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_CLIPBOARD_NOT_OPEN);

    ASSERT_TRUE(OpenClipboard(nullptr));
    EXPECT_EQ(GetClipboardData(CF_UNICODETEXT), text);
    HANDLE narrow = GetClipboardData(CF_TEXT);
    ASSERT_NE(narrow, nullptr);
    EXPECT_EQ(NarrowText(narrow),
              "Gr\xC3\xB6\xC3\x9F"
              "e 12 KB");
    ASSERT_TRUE(CloseClipboard());
    // Reading puts nothing on the system clipboard.
    EXPECT_EQ(toSystem.size(), 1u);
    platform::SetClipboardTextHook(previous);
}

TEST(Clipboard, OneThreadAtATimeAndTheClipboardOwnsWhatItHolds) {
    ASSERT_TRUE(OpenClipboard(nullptr));
    std::thread([] {
        EXPECT_FALSE(OpenClipboard(nullptr));
        EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
        EXPECT_FALSE(CloseClipboard());
        EXPECT_EQ(GetLastError(), ERROR_CLIPBOARD_NOT_OPEN);
    }).join();
    ASSERT_TRUE(EmptyClipboard());

    const UINT transfer = RegisterClipboardFormatW(L"{EEEB5DFB-81BD-4fda-8822-E47090DB5A64}");

    HGLOBAL first = GlobalAlloc(GHND, 4);
    HGLOBAL second = GlobalAlloc(GHND, 4);
    SetClipboardData(transfer, first);
    SetClipboardData(transfer, second);
    // The replaced block was freed by the clipboard.
    EXPECT_EQ(GlobalSize(first), 0u);
    EXPECT_EQ(GetClipboardData(transfer), second);
    EXPECT_EQ(CountClipboardFormats(), 1);
    EXPECT_EQ(SetClipboardData(CF_HDROP, nullptr), nullptr);
    ASSERT_TRUE(EmptyClipboard());
    EXPECT_EQ(GlobalSize(second), 0u);
    EXPECT_EQ(CountClipboardFormats(), 0);
    ASSERT_TRUE(CloseClipboard());
    EXPECT_EQ(GetOpenClipboardWindow(), nullptr);
}
