// System texts through FormatMessageW, into a caller's buffer and into one
// it allocates.
#include <gtest/gtest.h>

#include <string>

#include "platform/FormatMessage.h"
#include "platform/Win32.h"

namespace {

constexpr DWORD kSystemFlags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;

TEST(FormatMessage, AllocatedBufferHoldsTheSystemTextAndIsFreedByLocalFree) {
    LPWSTR text = nullptr;
    DWORD length =
        FormatMessageW(kSystemFlags | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, ERROR_ACCESS_DENIED,
                       1024, reinterpret_cast<LPWSTR>(&text), 0, nullptr);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::wstring(text), platform::SystemMessageText(ERROR_ACCESS_DENIED));
    EXPECT_EQ(length, std::wcslen(text));
    EXPECT_EQ(LocalFree(text), nullptr);
    EXPECT_EQ(LocalFree(nullptr), nullptr);

    // Unknown codes give the generic text.
    FormatMessageW(kSystemFlags | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, 16999, 1024,
                   reinterpret_cast<LPWSTR>(&text), 0, nullptr);
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(std::wstring(text), platform::SystemMessageText(16999));
    LocalFree(text);
}

TEST(FormatMessage, CallersBufferMustHoldTheTextAndItsTerminator) {
    const std::wstring expected = platform::SystemMessageText(ERROR_FILE_NOT_FOUND);
    std::wstring buffer(expected.size() + 1, L'#');
    DWORD length = FormatMessageW(kSystemFlags, nullptr, ERROR_FILE_NOT_FOUND, 0, buffer.data(),
                                  static_cast<DWORD>(buffer.size()), nullptr);
    EXPECT_EQ(length, expected.size());
    EXPECT_EQ(std::wstring(buffer.c_str()), expected);

    SetLastError(0);
    EXPECT_EQ(FormatMessageW(kSystemFlags, nullptr, ERROR_FILE_NOT_FOUND, 0, buffer.data(),
                             static_cast<DWORD>(expected.size()), nullptr),
              0u);
    EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST(FormatMessage, OnlySystemMessagesAreOffered) {
    wchar_t buffer[64] = L"";
    SetLastError(0);
    EXPECT_EQ(FormatMessageW(FORMAT_MESSAGE_FROM_STRING, L"text", 0, 0, buffer, 64, nullptr), 0u);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(FormatMessageW(kSystemFlags, nullptr, 5, 0, nullptr, 64, nullptr), 0u);
}

}  // namespace
