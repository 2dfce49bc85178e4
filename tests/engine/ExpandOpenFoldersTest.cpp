// Expanding keeps the destination's folders open between items and writes
// small files without the writer thread: a folder replaced during the run
// must not be written through, archives of more folders than are kept open
// must expand whole, and large and small files must come out the same with
// and without threads.
#include "EngineFixture.h"

namespace enginetest {
namespace {

class OpenFoldersTest : public EngineTest {
protected:
    // Writes a tar made by Python's tarfile from `adds` (lines of add(...)).
    fs::path MakeTar(const std::string &name, const std::string &adds) {
        fs::path parent = Scratch("made");
        Shell made = RunShell(
            "python3 -c \"\n"
            "import io, tarfile\n"
            "t = tarfile.open('" +
                name +
                "', 'w', format=tarfile.USTAR_FORMAT)\n"
                "def add(name, data=b'', kind=tarfile.REGTYPE, link=''):\n"
                "    i = tarfile.TarInfo(name); i.type = kind; i.linkname = link\n"
                "    i.size = len(data) if kind == tarfile.REGTYPE else 0\n"
                "    t.addfile(i, io.BytesIO(data))\n" +
                adds + "t.close()\"",
            parent);
        EXPECT_EQ(made.status, 0) << made.output;
        return parent / name;
    }
};

TEST_F(OpenFoldersTest, AFolderReplacedByALinkInTheSameRunIsNotWrittenThrough) {
    fs::path archive = MakeTar("swap.tar",
                               "add('sub/keep.txt', b'k')\n"
                               "add('d/a.txt', b'a')\n"
                               "add('d', kind=tarfile.SYMTYPE, link='sub')\n"
                               "add('d/b.txt', b'b')\n"
                               "add('last.txt', b'last')\n");
    SetInteger(kEnginePropConflictResolution, kResolutionReplace);
    fs::path out = Scratch("out");
    EXPECT_EQ(Expand(archive, out), kEngineUnsafeItemPath);

    std::map<std::string, std::string> inside = Snapshot(out);
    EXPECT_EQ(inside["d"], "-> sub");
    EXPECT_EQ(inside["sub/keep.txt"], "k");
    EXPECT_FALSE(inside.count("sub/b.txt")) << "written through the link";
    EXPECT_EQ(inside["last.txt"], "last");
}

TEST_F(OpenFoldersTest, MoreFoldersThanAreKeptOpenAllExpand) {
    // 700 folders, then a second file into the first one, which by then
    // has been closed again.
    fs::path archive = MakeTar("many.tar",
                               "for n in range(700): add('f%d/x.txt' % n, b'%d' % n)\n"
                               "add('f0/y.txt', b'again')\n");
    fs::path out = Scratch("out");
    ASSERT_EQ(Expand(archive, out), kEngineOK);

    std::map<std::string, std::string> inside = Snapshot(out);
    EXPECT_EQ(inside.size(), 700u * 2 + 1);
    EXPECT_EQ(inside["f0/x.txt"], "0");
    EXPECT_EQ(inside["f699/x.txt"], "699");
    EXPECT_EQ(inside["f0/y.txt"], "again");
}

TEST_F(OpenFoldersTest, SmallAndLargeFilesComeOutWholeWithAndWithoutThreads) {
    fs::path archive =
        MakeTar("sizes.tar",
                "import random\n"
                "r = random.Random(7)\n"
                "for n, size in enumerate([0, 1, 262143, 262144, 262145, 3000000]):\n"
                "    add('s/%d.bin' % n, r.randbytes(size))\n"
                "    add('s/%d.txt' % n, b'x' * (n + 1))\n");
    fs::path made = Scratch("made");
    ASSERT_EQ(RunShell("mkdir expected && tar -xf sizes.tar -C expected", made).status, 0);
    std::map<std::string, std::string> expected = Snapshot(made / "expected");
    ASSERT_EQ(expected.size(), 13u);
    for (bool threads : {true, false}) {
        ASSERT_EQ(SetEngineBooleanProperty(engine, kEnginePropUseThreads, threads), kEngineOK);
        fs::path out = Scratch(threads ? "threaded" : "plain");
        ASSERT_EQ(Expand(archive, out), kEngineOK);
        EXPECT_TRUE(Snapshot(out) == expected) << "threads " << threads;
    }
}

}  // namespace
}  // namespace enginetest
