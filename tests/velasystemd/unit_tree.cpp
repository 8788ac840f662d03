#include "unit_tree.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace velasystemd_test {

namespace fs = std::filesystem;

std::string UnitText(const std::string& policy, const std::string& install) {
    std::string text = "[Unit]\nDescription=test unit\n\n[Service]\nExecStart=/bin/true\n";
    if (!policy.empty()) text += "\n[X-Vela]\n" + policy;
    if (!install.empty()) text += "\n[Install]\n" + install;
    return text;
}

void UnitTree::SetUp() {
    char pattern[] = "/dev/shm/velasystemd-test-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root_ = pattern;
    ClearErrorState();
}

void UnitTree::TearDown() {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
}

void UnitTree::Write(const std::string& relative, const std::string& text) const {
    fs::create_directories(fs::path(Path(relative)).parent_path());
    std::ofstream(Path(relative), std::ios::binary | std::ios::trunc) << text;
}

void UnitTree::Link(const std::string& relative, const std::string& target) const {
    fs::create_directories(fs::path(Path(relative)).parent_path());
    fs::create_symlink(target, Path(relative));
}

std::string UnitTree::Read(const std::string& relative) const {
    std::ifstream file(Path(relative), std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string UnitTree::LinkTarget(const std::string& relative) const {
    std::error_code error;
    fs::path target = fs::read_symlink(Path(relative), error);
    return error ? std::string("(no link)") : target.string();
}

bool UnitTree::Exists(const std::string& relative) const {
    return fs::symlink_status(Path(relative)).type() != fs::file_type::not_found;
}

}  // namespace velasystemd_test
