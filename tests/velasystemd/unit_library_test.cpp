// The unit library: name rules and parsers case by case, then the model on
// temporary unit trees (listing, policy queries, enable state and its changes,
// enabling) and drop-in writing.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "core_library.h"
#include "drop_in.h"
#include "unit_file.h"
#include "unit_name.h"
#include "temp_dir.h"
#include "unit_model.h"
#include "velacore/error_state.h"

namespace velasystemd {
namespace {

using Names = std::vector<std::string>;

TEST(UnitName, ValidNamesAreThoseSystemdLoads) {
    for (std::string name : std::initializer_list<std::string>{"a.service", "a@.service", "a@b@c.service", "A-b_c:d\\x2d.target",
                             std::string(247, 'a') + ".service"}) {
        EXPECT_TRUE(IsValidUnitName(name)) << name;
    }
    for (std::string name : std::initializer_list<std::string>{"", ".service", "a", "a.conf", "@a.service", "a b.service", "a/b.service",
                             "a.service~", "\xc3\xa9.service", std::string(248, 'a') + ".service"}) {
        EXPECT_FALSE(IsValidUnitName(name)) << name;
    }
    EXPECT_EQ(NormalizedUnitName("ntpd"), "ntpd.service");
    EXPECT_EQ(NormalizedUnitName("a.socket"), "a.socket");
    EXPECT_EQ(NormalizedUnitName("a.conf"), "a.conf.service");
    EXPECT_EQ(UnitTypeOf("a"), "");
}

// The facts in one line: validity, policy state, flags, support key, lists.
std::string Describe(const UnitFacts& facts) {
    const char* states[] = {"absent", "present", "malformed"};
    std::string text = facts.valid() ? "" : "invalid ";
    text += states[static_cast<int>(facts.policy_state())];
    if (facts.default_enable()) text += " default";
    if (facts.check_reason()) text += " reason";
    if (facts.support_key()) text += " key=" + *facts.support_key();
    const char* lists[] = {" stay=", " carries=", " packed=", " wanted=", " required="};
    for (int list = 0; list < 5; ++list) {
        std::string names;
        for (const std::string& name : facts.Names(static_cast<NameList>(list))) names += name + ",";
        if (!names.empty()) text += lists[list] + names;
    }
    return text;
}

TEST(UnitFileParser, ReadsPolicyAndInstallSectionsAsSystemdWould) {
    std::ifstream cases(CASES_DIR "/unit_files.txt");
    std::string text;
    int count = 0;
    for (std::string line; std::getline(cases, line);) {
        bool crlf = line.size() >= 2 && line.compare(line.size() - 2, 2, "\\r") == 0;
        if (line.rfind("=> ", 0) != 0) {
            text += crlf ? line.substr(0, line.size() - 2) + "\r\n" : line + "\n";
            continue;
        }
        EXPECT_EQ(Describe(ParseUnitFile(text)), line.substr(3)) << text;
        text.clear();
        ++count;
    }
    EXPECT_EQ(count, 17);
}

TEST(SupportTableParser, AcceptsOnlyConsistentYesNoLines) {
    auto table = ParseSupportTable("# comment\n\n wifi = yes \r\nnfs=no\nwifi=yes\n");
    ASSERT_TRUE(table);
    EXPECT_EQ(*table, (SupportTable{{"nfs", false}, {"wifi", true}}));
    for (const char* text : {"wifi=maybe\n", "wifi\n", "wifi=yes\nwifi=no\n", "a b=yes\n", "=yes\n",
                             "wifi=YES\n"}) {
        EXPECT_FALSE(ParseSupportTable(text)) << text;
    }
}

const std::string ETC = "/etc/systemd/system/";
const std::string RUN = "/run/systemd/system/";
const std::string LIB = "/usr/lib/systemd/system/";
const std::string MARKS = "/etc/velasystemd/changed/";
const std::string WANTED = "[Install]\nWantedBy=multi-user.target\n";

class UnitModelTest : public TempDirTest {
  protected:
    // A unit file in /usr/lib: [Unit], `text`, and `policy` as [X-Vela] when given.
    void Unit(const std::string& name, const std::string& text, const char* policy = nullptr) {
        Write(LIB + name, "[Unit]\n" + text + (policy ? std::string("[X-Vela]\n") + policy : ""));
    }
    // The error code a failing call leaves; 0 when it succeeds.
    template <typename Call>
    int FailureOf(Call call) {
        VLIBCErrSet(0, "", 0);
        return call() ? 0 : VLIBCErrGet();
    }
    // Builds the tree of mixed_tree.txt and returns its other lines.
    std::vector<std::string> WriteMixedTree() {
        std::ifstream cases(CASES_DIR "/mixed_tree.txt");
        std::vector<std::string> queries;
        for (std::string line; std::getline(cases, line);) {
            std::istringstream fields(line);
            std::string kind, path, text;
            std::getline(fields >> kind >> path >> std::ws, text);
            for (size_t at; (at = text.find("\\n")) != std::string::npos;) text.replace(at, 2, "\n");
            if (kind == "file") Write(path, text);
            if (kind == "link") Link(path, text);
            if (kind == "query" || kind == "enable") queries.push_back(kind + " " + path + " " + text);
        }
        return queries;
    }
};

TEST_F(UnitModelTest, ListsValidNamesInByteOrderAndLocatesTheirFiles) {
    WriteMixedTree();
    UnitModel model(root_);
    Names units;
    ASSERT_TRUE(model.ListUnits(units, ""));
    EXPECT_EQ(units, (Names{"a@.service", "bad.service", "bare.service", "broken.service", "etc-over-run.service",
                            "keyless.target", "lib.service", "local-over-usr.service", "off.service", "on.service",
                            "plain.service", "run-over-local.service", "unknown.socket", "usr-over-lib.service"}));
    ASSERT_TRUE(model.ListServicesWithReason(units));
    EXPECT_EQ(units, (Names{"off.service", "on.service"}));
    EXPECT_EQ(model.UnitPathGet("plain.service"), Path(ETC + "plain.service"));
    EXPECT_EQ(model.UnitPathGet("off.service"), Path("/usr/local/lib/systemd/system/off.service"));
    EXPECT_EQ(fs::canonical(model.UnitPathGet("alias.service")), Path(LIB + "on.service"));
    EXPECT_EQ(model.UnitPathGet("a@x.service"), Path(LIB + "a@.service"));
    for (const char* none : {"bare.service", "x.service", "../on.service"}) {
        EXPECT_THROW(model.UnitPathGet(none), std::runtime_error) << none;
    }
    fs::remove_all(Path("/lib"));
    Link("/lib", "usr/lib");  // the same directory under a second name is read once
    ASSERT_TRUE(UnitModel(root_).ListUnits(units, ""));
    EXPECT_EQ(units.size(), 13u);
    fs::remove_all(Path("/usr/local/lib/systemd/system"));
    Write("/usr/local/lib/systemd/system", "a file where a directory belongs");
    UnitModel broken(root_);
    EXPECT_EQ(FailureOf([&] { return broken.ListUnits(units, ""); }), VLIBC_ERR_LIST_UNITS);
}

TEST_F(UnitModelTest, QueriesAnswerFromTheXVelaSectionAndTheLinks) {
    std::vector<std::string> queries = WriteMixedTree();
    ASSERT_EQ(queries.size(), 21u);
    UnitModel model(root_);
    for (const std::string& query : queries) {
        struct {
            std::string kind, unit;
            int failure = -2, status = -2;
            bool supported = false;
        } c;
        std::istringstream(query) >> c.kind >> c.unit >> std::hex >> c.failure >> std::dec >> c.supported >> c.status;
        if (c.kind == "enable") {
            EXPECT_EQ(FailureOf([&] { return model.Enable(c.unit); }), c.failure) << c.unit;
            continue;
        }
        bool supported = !c.supported;  // a failed query leaves it as it was
        EXPECT_EQ(FailureOf([&] { return model.IsSupportGet(c.unit, supported); }), c.failure) << c.unit;
        EXPECT_EQ(supported, c.failure ? !c.supported : c.supported) << c.unit;
        Names packs{"left.target"};
        EXPECT_EQ(FailureOf([&] { return model.ListGet(c.unit, NameList::PACKED_IN, packs); }), c.failure);
        Names expected = c.failure ? Names{"left.target"} : Names{};
        bool packed = c.unit == "on.service" || c.unit == "alias.service";
        EXPECT_EQ(packs, packed ? Names{"p.target"} : expected) << c.unit;
        EXPECT_EQ(model.EnableStatusGet(c.unit), c.status) << c.unit;
    }
    bool enabled = false;
    EXPECT_TRUE(model.IsDefaultEnableGet("on.service", enabled) && enabled);
    EXPECT_TRUE(model.IsDefaultEnableGet("keyless.target", enabled) && !enabled);
    Names names;
    EXPECT_TRUE(model.ListGet("keyless.target", NameList::STAY_ALIVE_TARGETS, names) && names == Names{"r.target"});
    EXPECT_TRUE(model.ListGet("keyless.target", NameList::STAY_ALIVE_UNITS, names) && names == Names{"u.service"});
    EXPECT_EQ(fs::read_symlink(Path(ETC + "multi-user.target.wants/plain.service")), "/elsewhere/plain.service");
    EXPECT_FALSE(Exists(MARKS)) << "no mark for a failed enabling";
    fs::remove(Path("/usr/vela/etc/unit-support.conf"));
    UnitModel without_table(root_);
    bool supported = true;
    EXPECT_EQ(FailureOf([&] { return without_table.IsSupportGet("on.service", supported); }), 0x703);
    EXPECT_EQ(FailureOf([&] { return without_table.IsSupportGet("keyless.target", supported); }), 0);
}

TEST_F(UnitModelTest, EnableStatusSeesEveryChangeMadeAfterARead) {
    Unit("d.service", WANTED);
    UnitModel model(root_);
    EXPECT_EQ(model.EnableStatusGet("d.service"), 0);
    Link(RUN + "a.target.wants/d.service", Path(LIB + "d.service"));
    EXPECT_EQ(model.EnableStatusGet("d.service"), 1) << "new directory in a missing base";
    fs::rename(Path(RUN + "a.target.wants"), Path(RUN + "b.target.requires"));
    EXPECT_EQ(model.EnableStatusGet("d.service"), 1) << "directory renamed";
    fs::remove(Path(RUN + "b.target.requires/d.service"));
    EXPECT_EQ(model.EnableStatusGet("d.service"), 0) << "link removed";
    int ready[2];  // another process changes the tree right after this one read it
    ASSERT_EQ(pipe(ready), 0);
    pid_t child = fork();
    if (child == 0) {
        char go;
        bool enabled = read(ready[0], &go, 1) == 1 && model.Enable("d.service");
        _exit(enabled && model.EnableStatusGet("d.service") == 1 ? 0 : 1);
    }
    EXPECT_EQ(model.EnableStatusGet("d.service"), 0);
    ASSERT_EQ(write(ready[1], "x", 1), 1);
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(model.EnableStatusGet("d.service"), 1) << "the other process's change";
    // A change in the same clock tick as the read leaves the time as it was.
    const std::string links = Path(ETC + "multi-user.target.wants");
    auto stamp = [&](timespec modified) {
        const timespec times[2] = {{0, UTIME_OMIT}, modified};
        return utimensat(AT_FDCWD, links.c_str(), times, 0) == 0;
    };
    const timespec frozen = {time(nullptr) + 3600, 0};
    ASSERT_TRUE(stamp(frozen));
    EXPECT_EQ(model.EnableStatusGet("d.service"), 1);
    fs::remove(links + "/d.service");
    ASSERT_TRUE(stamp(frozen));
    EXPECT_EQ(model.EnableStatusGet("d.service"), 0) << "change in the tick of the read";
    Link(RUN + "d.service", "/dev/null");
    EXPECT_EQ(model.EnableStatusGet("d.service"), 3) << "mask added";
    // An entry read and parsed, then made a mask, a link, a link elsewhere.
    Write("/srv/a/e.service", WANTED);
    Write("/srv/b/e.service", "[Unit]\n");
    for (const auto& [target, expected] : {std::pair<std::string, int>{"", 0}, {"/dev/null", 3},
                                           {"/srv/b/e.service", 2}, {"/srv/a/e.service", 0}}) {
        fs::remove(Path(ETC + "e.service"));
        Write(ETC + "e.service", target.empty() ? WANTED : target, !target.empty());
        EXPECT_EQ(model.EnableStatusGet("e.service"), expected) << "entry now " << target;
    }
    // The directory stamped with the very tick of the read, then changed in it.
    Link(ETC + "multi-user.target.wants/e.service", "/srv/a/e.service");
    timespec tick, after;
    do {  // until the read falls in the tick the directory is stamped with
        (void)clock_gettime(CLOCK_REALTIME_COARSE, &tick);
        ASSERT_TRUE(stamp(tick));
        EXPECT_EQ(model.EnableStatusGet("e.service"), 1);
        (void)clock_gettime(CLOCK_REALTIME_COARSE, &after);
    } while (after.tv_sec != tick.tv_sec || after.tv_nsec != tick.tv_nsec);
    fs::remove(links + "/e.service");
    ASSERT_TRUE(stamp(tick));
    EXPECT_EQ(model.EnableStatusGet("e.service"), 0) << "change in the tick of the read";
    // A time long past, then a change stamped later in the same second.
    const timespec past = {time(nullptr) - 60, 1};
    Link(ETC + "multi-user.target.wants/e.service", "/srv/a/e.service");
    ASSERT_TRUE(stamp(past));
    EXPECT_EQ(model.EnableStatusGet("e.service"), 1);
    fs::remove(links + "/e.service");
    ASSERT_TRUE(stamp({past.tv_sec, 2}));
    EXPECT_EQ(model.EnableStatusGet("e.service"), 0) << "change in the same second";
    // A link directory that cannot be looked into leaves every status unknown.
    Link(RUN + "loop.target.wants", "loop.target.wants");
    EXPECT_EQ(FailureOf([&] { return model.EnableStatusGet("e.service") >= 0; }), VLIBC_ERR_LIST_UNITS);
}

TEST_F(UnitModelTest, EnablingAndDisablingPlaceLinksAndMarksByDefaultPolicy) {
    Unit("u.service", "[Install]\nWantedBy=m.target a.target\nRequiredBy=b.target\n", "DefaultEnable=yes\n");
    Unit("n.service", WANTED, "DefaultEnable=no\n");
    Unit("getty@.service", "[Install]\nWantedBy=getty.target\n");
    UnitModel model(root_);
    ASSERT_TRUE(model.Enable("u.service") && model.Enable("u.service")) << "identical links are no failure";
    for (const char* link : {"m.target.wants/u.service", "a.target.wants/u.service", "b.target.requires/u.service"}) {
        EXPECT_EQ(fs::read_symlink(Path(RUN + link)), Path(LIB + "u.service")) << link;
    }
    EXPECT_FALSE(Exists(ETC + "m.target.wants") || model.IsEnableStatusChanged("u.service"));
    ASSERT_TRUE(model.Enable("n.service") && model.Enable("getty@tty1.service"));
    EXPECT_EQ(fs::read_symlink(Path(ETC + "multi-user.target.wants/n.service")), Path(LIB + "n.service"));
    EXPECT_EQ(fs::read_symlink(Path(ETC + "getty.target.wants/getty@tty1.service")), Path(LIB + "getty@.service"));
    EXPECT_TRUE(model.IsEnableStatusChanged("n.service") && !Exists(RUN + "multi-user.target.wants"));
    ASSERT_TRUE(model.Disable("u.service") && model.Disable("n.service"));
    EXPECT_FALSE(Exists(RUN + "a.target.wants/u.service") || Exists(RUN + "b.target.requires/u.service"));
    EXPECT_FALSE(Exists(ETC + "multi-user.target.wants/n.service"));
    EXPECT_TRUE(Exists(ETC + "getty.target.wants/getty@tty1.service"));
    EXPECT_TRUE(model.IsEnableStatusChanged("u.service")) << "departs from its default";
    fs::remove(Path(MARKS + "n.service"));
    EXPECT_TRUE(model.Disable("n.service") && !model.IsEnableStatusChanged("n.service"));
    EXPECT_FALSE(model.IsEnableStatusChanged("../changed/u.service"));
    EXPECT_EQ(FailureOf([&] { return model.Disable("missing.service"); }), 0x701);
}

TEST_F(UnitModelTest, DropInsAreWrittenWholeOrRefused) {
    const std::string dir = Path("/run/d/a.service.d/");
    ASSERT_TRUE(WriteUnitSection(dir, "x.conf", "Unit", {{"PartOf", "a.target"}, {"After", "b c"}}));
    ASSERT_TRUE(WriteUnitSection(dir, "x.conf", "Unit", {{"PartOf", "p.target"}, {"Before", ""}}));
    EXPECT_EQ(Read("/run/d/a.service.d/x.conf"),
              "# Generated by vela-system-generator. Do not edit.\n[Unit]\nBefore=\nPartOf=p.target\n");
    EXPECT_EQ(fs::status(dir + "x.conf").permissions(), fs::perms(0644));
    const std::tuple<std::string, std::string, std::map<std::string, std::string>> refused[] = {
        {"y", "Unit", {{"K", "a\nb"}}}, {"y", "Unit", {{"K", "a\x7f"}}}, {"y", "Unit", {{"K", "a\\"}}},
        {"y", "Unit", {{"K y", "a"}}},  {"y", "Unit", {{"K=y", "a"}}},   {"y", "Unit", {{"", "a"}}},
        {"y", "", {}},  {"y", "[Unit]", {}},  {"y", "Un\tit", {}},  {"", "Unit", {}},  {"..", "Unit", {}},
        {"a/b", "Unit", {}},  {"a\nb", "Unit", {}},
    };
    for (const auto& [name, section, settings] : refused) {
        EXPECT_EQ(FailureOf([&] { return WriteUnitSection(dir, name, section, settings); }), 0x708) << name;
    }
    EXPECT_EQ(FailureOf([&] { return WriteUnitSection(Path("/run/d"), "y", "Unit", {}); }), 0x708);
    EXPECT_EQ(FailureOf([&] { return WriteUnitSection(dir + "x.conf/", "y", "Unit", {}); }), 0x707);
    EXPECT_FALSE(Exists("/run/d/a.service.d/y"));
    const std::string reason = Path("/run/r/vela-reason.conf");
    ASSERT_TRUE(LinkIntoDropInDir(Path("/e/s.service.d/"), reason) && LinkIntoDropInDir(Path("/e/s.service.d/"), reason));
    EXPECT_EQ(fs::read_symlink(Path("/e/s.service.d/vela-reason.conf")), reason);
    EXPECT_EQ(FailureOf([&] { return LinkIntoDropInDir(Path("/e/s.service.d/"), "/x/vela-reason.conf"); }), 0x707);
}

}  // namespace
}  // namespace velasystemd
