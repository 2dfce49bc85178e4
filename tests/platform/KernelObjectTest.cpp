// Handles: closing, waiting on several kinds, and refusing stale handles.
#include <gtest/gtest.h>

#include "platform/KernelObject.h"
#include "platform/WinError.h"
#include "platform/WinThread.h"

TEST(KernelObject, ClosedAndForeignHandlesAreRefusedWithoutBeingRead) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_NE(event, nullptr);
    ASSERT_TRUE(CloseHandle(event));

    SetLastError(0);
    EXPECT_FALSE(CloseHandle(event));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_FAILED);

    int notAnObject = 0;
    EXPECT_FALSE(CloseHandle(&notAnObject));
    EXPECT_FALSE(CloseHandle(nullptr));
    EXPECT_FALSE(CloseHandle(INVALID_HANDLE_VALUE));
}

TEST(KernelObject, WaitForMultipleObjectsReportsTheFirstSignalledOrAll) {
    HANDLE events[2] = {CreateEventW(nullptr, TRUE, FALSE, nullptr),
                        CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    EXPECT_EQ(WaitForMultipleObjects(2, events, FALSE, 10), WAIT_TIMEOUT);
    SetEvent(events[1]);
    EXPECT_EQ(WaitForMultipleObjects(2, events, FALSE, 10), WAIT_OBJECT_0 + 1);
    EXPECT_EQ(WaitForMultipleObjects(2, events, TRUE, 10), WAIT_TIMEOUT);
    SetEvent(events[0]);
    EXPECT_EQ(WaitForMultipleObjects(2, events, TRUE, 10), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForMultipleObjects(0, events, TRUE, 10), WAIT_FAILED);
    for (HANDLE e : events) CloseHandle(e);
}
