#include "platform/memory/MemoryStatus.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

#include "support/TempDir.h"

using platform::memory::MemoryStatusException;
using platform::memory::MemoryStatusImpl;

namespace {

constexpr const char* meminfo = "MemTotal:       16000 kB\nMemFree:   10 kB\nMemAvailable:    9000 kB\n";
constexpr std::uint64_t systemAvailable = 9'216'000;

// What the machine says whose kernel files are these.
template <class Question>
std::uint64_t ask(const std::map<std::string, std::string>& files, const Question& question) {
    const support::TempDir kernel;
    for (const auto& [name, content] : files) {
        std::filesystem::create_directories(std::filesystem::path(kernel.file(name)).parent_path());
        support::writeFile(kernel.file(name), content);
    }
    return (MemoryStatusImpl(kernel.file("proc"), kernel.file("cgroup")).*question)();
}

}  // namespace

TEST(MemoryStatusTest, TheTightestOfSystemAndControlGroupsHolds) {
    // Files of a version 2 group: its limit, its use, and how much of that is cache that nobody needs.
    const auto group = [](const std::string& folder, const char* limit, const char* usage,
                          const char* cache = "0") {
        return std::map<std::string, std::string>{
            {folder + "/memory.max", std::string(limit) + "\n"},
            {folder + "/memory.current", std::string(usage) + "\n"},
            {folder + "/memory.stat", std::string("anon 1\nactive_file 30\ninactive_file ") + cache + "\n"}};
    };
    struct Case {
        const char* what;
        const char* groups;
        std::map<std::string, std::string> files;
        std::map<std::string, std::string> moreFiles;
        std::uint64_t available;
    };
    const Case cases[] = {
        {"no limit", "0::/a\n", group("cgroup/a", "max", "5"), {}, systemAvailable},
        {"the system has less", "0::/\n", group("cgroup", "16000000000", "40"), {}, systemAvailable},
        {"page cache counts as free", "0::/a/b\n", group("cgroup/a/b", "1000", "900", "50"),
         group("cgroup/a", "2000", "1000"), 150},
        {"a group above is tighter", "0::/a/b\n", group("cgroup/a/b", "max", "900"),
         group("cgroup/a", "2000", "1990"), 10},
        {"a path that is not visible", "0::/outside\n", group("cgroup", "70", "50"), {}, 20},
        {"over the limit", "0::/\n", group("cgroup", "70", "90"), {}, 0},
        {"version 1 among other controllers",
         "9:name=systemd:/x\n8:memory_other:/x\n4:cpu,memory:/a\n0::/\n",
         {{"cgroup/memory/a/memory.limit_in_bytes", "5000\n"},
          {"cgroup/memory/a/memory.usage_in_bytes", "4000\n"},
          {"cgroup/memory/a/memory.stat", "inactive_file 7\ntotal_inactive_file 100\n"}},
         {{"cgroup/memory/memory.limit_in_bytes", "9223372036854771712\n"},
          {"cgroup/memory/memory.usage_in_bytes", "8000\n"}},
         1100},
    };
    for (const Case& each : cases) {
        auto files = each.files;
        files.insert(each.moreFiles.begin(), each.moreFiles.end());
        files["proc/self/cgroup"] = each.groups;
        files["proc/meminfo"] = meminfo;
        EXPECT_EQ(ask(files, &MemoryStatusImpl::available), each.available) << each.what;
        EXPECT_EQ(ask(files, &MemoryStatusImpl::total), 16000u * 1024);
    }
    EXPECT_GT(MemoryStatusImpl().total(), MemoryStatusImpl().available());
    EXPECT_THROW(ask({}, &MemoryStatusImpl::available), MemoryStatusException);
    EXPECT_THROW(ask({{"proc/meminfo", "MemTotal: 5 kB\n"}}, &MemoryStatusImpl::available),
                 MemoryStatusException);
}
