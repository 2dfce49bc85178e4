// CNewArchiveContentList and CFilterObject: the job-file form with its
// dropped paths and filter state, the values a job file assumes for missing
// filter keys, and the date comparisons.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "CNewArchiveContentList.h"
#include "OptionsTestSupport.h"
#include "platform/WinTime.h"

namespace {

using Strings = std::vector<std::wstring>;

FILETIME Ticks(ULONGLONG ticks) {
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}
ULONGLONG TicksOf(const FILETIME &time) {
    return (ULONGLONG{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}
constexpr ULONGLONG kTicksPerSecond = 10000000;
constexpr ULONGLONG kTicksPerDay = 86400 * kTicksPerSecond;

// Now on the local clock.
FILETIME LocalNow() {
    SYSTEMTIME clock{};
    GetLocalTime(&clock);
    FILETIME local{};
    SystemTimeToFileTime(&clock, &local);
    return local;
}

class ContentListTest : public testsupport::JobFileTest {
protected:
    std::string Narrow(const std::wstring &text) { return std::string(text.begin(), text.end()); }
};

TEST_F(ContentListTest, JobFileRoundTripWithAFilterAndPathsThatHaveGoneDropped) {
    CNewArchiveContentList list;
    list.Files = {ExistingFile("a.txt"), ExistingFile("b.txt")};
    list.Folders = {ExistingFolder("docs")};
    list.OneArchivePerItem = true;
    list.MakeIndex = true;
    list.SegmentSize = 5'000'000'000;
    list.IndexPath = L"/not/stored";
    list.GetNewFilterObject();
    list.Filter->Mask = L"*.txt;*.doc";
    list.Filter->ByDate = true;
    list.Filter->DateType = 3;
    list.Filter->DateStart = Ticks(0x01D9'0000'8000'0001ull);
    list.Filter->DateEnd = Ticks(0x01DA'0000'FFFF'FFFFull);
    list.Filter->AddArchived = true;
    EXPECT_TRUE(list.SaveToIni(JobFile().c_str()));

    CNewArchiveContentList read;
    EXPECT_TRUE(read.ReadFromIni(JobFile().c_str()));
    EXPECT_EQ(read.Files, list.Files);
    EXPECT_EQ(read.Folders, list.Folders);
    EXPECT_TRUE(read.OneArchivePerItem && read.MakeIndex);
    EXPECT_FALSE(read.Timestamp);
    EXPECT_EQ(read.SegmentSize, 5'000'000'000);
    EXPECT_TRUE(read.IndexPath.empty());
    ASSERT_NE(read.Filter, nullptr);
    EXPECT_EQ(read.Filter->Mask, L"*.txt;*.doc");
    EXPECT_TRUE(read.Filter->ByDate);
    EXPECT_EQ(read.Filter->DateType, 3u);
    // Halves with the top bit set go out as negative numbers and come back.
    EXPECT_EQ(TicksOf(read.Filter->DateStart), TicksOf(list.Filter->DateStart));
    EXPECT_EQ(TicksOf(read.Filter->DateEnd), TicksOf(list.Filter->DateEnd));
    EXPECT_TRUE(read.Filter->AddArchived);

    // A second read appends to the lists.
    read.ReadFromIni(JobFile().c_str());
    EXPECT_EQ(read.Files.size(), 4u);

    // Paths that have gone are dropped, the others keep their order, and a
    // filter switched off gives no filter object.
    WriteJobFile("[FilesToInclude]\r\n7=" + Narrow(list.Files[1]) + "\r\n0=/gone/2.txt\r\n1=" +
                 Narrow(list.Files[0]) + "\r\n[FolderFilter]\r\nFolderFilterState=0\r\n");
    CNewArchiveContentList dropped;
    dropped.ReadFromIni(JobFile().c_str());
    EXPECT_EQ(dropped.Files, (Strings{list.Files[1], list.Files[0]}));
    EXPECT_EQ(dropped.Filter, nullptr);
}

TEST_F(ContentListTest, MissingFilterKeysTakeTheJobFilesAssumptions) {
    WriteJobFile("[FolderFilter]\r\nFolderFilterState=1\r\n");
    CFilterObject filter;
    filter.Mask = L"*.kept";
    filter.DateType = 2;
    filter.ByDate = true;
    filter.AddArchived = true;
    filter.ReadFromIni(L"FolderFilter", JobFile().c_str());
    EXPECT_EQ(filter.Mask, L"*.kept");
    EXPECT_EQ(filter.DateType, 2u);
    EXPECT_FALSE(filter.ByDate);
    EXPECT_FALSE(filter.AddArchived);
    // Not the constructor's 0 and true.
    EXPECT_EQ(filter.Since, 10u);
    EXPECT_FALSE(filter.SystemAndHidden);
    EXPECT_EQ(TicksOf(filter.DateStart), 0u);
    EXPECT_EQ(TicksOf(filter.DateEnd), 0u);
}

TEST_F(ContentListTest, DateTypesCompareTheLastWriteTimeWithExclusiveBounds) {
    CFilterObject filter;
    filter.DateStart = Ticks(1000);
    filter.DateEnd = Ticks(2000);
    const FILETIME since = Ticks(1500);
    struct Case {
        DWORD type;
        ULONGLONG time;
        bool passes;
    };
    const Case cases[] = {
        {0, 0, true},                                           // any date
        {1, 999, true},   {1, 1000, false},                     // before the start
        {2, 1001, true},  {2, 1000, false},                     // after the start
        {3, 1500, true},  {3, 1000, false},  {3, 2000, false},  // between
        {4, 1501, true},  {4, 1500, false},                     // after the since limit
        {5, 1500, false}, {99, 1500, false},                    // unknown types
    };
    for (const Case &c : cases) {
        filter.DateType = c.type;
        EXPECT_EQ(filter.DatePasses(Ticks(c.time), since), c.passes)
            << "type " << c.type << " at " << c.time;
    }
}

TEST_F(ContentListTest, SinceLimitIsThatManyDaysBeforeNow) {
    CFilterObject filter;
    filter.Since = 40;  // across a month boundary whatever today is
    const ULONGLONG now = TicksOf(LocalNow());
    const ULONGLONG limit = TicksOf(filter.SinceLimit());
    // A day may be an hour short or long across a change of summer time.
    const LONGLONG difference =
        static_cast<LONGLONG>(now - limit) - static_cast<LONGLONG>(40 * kTicksPerDay);
    EXPECT_LE(std::llabs(difference), static_cast<LONGLONG>(3601 * kTicksPerSecond));
}

}  // namespace
