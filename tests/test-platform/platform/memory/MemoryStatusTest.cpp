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

// A tree of made-up kernel files.
class Kernel {
public:
    explicit Kernel(const std::map<std::string, std::string>& files) {
        for (const auto& [name, content] : files) {
            std::filesystem::create_directories(std::filesystem::path(_dir.file(name)).parent_path());
            support::writeFile(_dir.file(name), content);
        }
    }
    MemoryStatusImpl status() const { return MemoryStatusImpl(_dir.file("proc"), _dir.file("cgroup")); }

private:
    support::TempDir _dir;
};

}  // namespace

TEST(MemoryStatusTest, TheTightestOfSystemAndControlGroupsHolds) {
    const struct {
        const char* what;
        std::map<std::string, std::string> files;
        std::uint64_t available;
    } cases[] = {
        {"no groups", {}, systemAvailable},
        {"groups without limit",
         {{"proc/self/cgroup", "0::/a\n"},
          {"cgroup/a/memory.max", "max\n"},
          {"cgroup/a/memory.current", "5\n"}},
         systemAvailable},
        {"version 2, own group, page cache counts as free",
         {{"proc/self/cgroup", "0::/a/b\n"},
          {"cgroup/a/b/memory.max", "1000\n"},
          {"cgroup/a/b/memory.current", "900\n"},
          {"cgroup/a/b/memory.stat", "anon 1\nactive_file 30\ninactive_file 50\n"},
          {"cgroup/a/memory.max", "2000\n"},
          {"cgroup/a/memory.current", "1000\n"}},
         150},
        {"version 2, a group above is tighter",
         {{"proc/self/cgroup", "0::/a/b\n"},
          {"cgroup/a/b/memory.max", "max\n"},
          {"cgroup/a/b/memory.current", "900\n"},
          {"cgroup/a/memory.max", "2000\n"},
          {"cgroup/a/memory.current", "1990\n"}},
         10},
        {"a path that is not visible leaves the root's limit",
         {{"proc/self/cgroup", "0::/outside\n"},
          {"cgroup/memory.max", "70\n"},
          {"cgroup/memory.current", "50\n"}},
         20},
        {"over the limit",
         {{"proc/self/cgroup", "0::/\n"}, {"cgroup/memory.max", "70\n"}, {"cgroup/memory.current", "90\n"}},
         0},
        {"more cache than use",
         {{"proc/self/cgroup", "0::/\n"},
          {"cgroup/memory.max", "70\n"},
          {"cgroup/memory.current", "40\n"},
          {"cgroup/memory.stat", "inactive_file 41\n"}},
         70},
        {"version 1 among other controllers",
         {{"proc/self/cgroup", "9:name=systemd:/x\n8:memory_other:/x\n4:cpu,memory:/a\n0::/\n"},
          {"cgroup/memory/a/memory.limit_in_bytes", "5000\n"},
          {"cgroup/memory/a/memory.usage_in_bytes", "4000\n"},
          {"cgroup/memory/a/memory.stat", "inactive_file 7\ntotal_inactive_file 100\n"},
          {"cgroup/memory/memory.limit_in_bytes", "9223372036854771712\n"},
          {"cgroup/memory/memory.usage_in_bytes", "8000\n"}},
         1100},
        {"the system has less than the group allows",
         {{"proc/self/cgroup", "0::/\n"},
          {"cgroup/memory.max", "16000000000\n"},
          {"cgroup/memory.current", "40\n"}},
         systemAvailable},
    };
    for (const auto& row : cases) {
        auto files = row.files;
        files["proc/meminfo"] = meminfo;
        const Kernel kernel(files);
        EXPECT_EQ(kernel.status().available(), row.available) << row.what;
        EXPECT_EQ(kernel.status().total(), 16000u * 1024);
    }
}

TEST(MemoryStatusTest, NoFiguresAreAFailure) {
    const struct {
        std::map<std::string, std::string> files;
        const char* reason;
    } cases[] = {
        {{}, "No such file or directory. Error code: 2."},
        {{{"proc/meminfo", "MemTotal: 5 kB\n"}}, "No data available. Error code: 61."},
    };
    for (const auto& row : cases) {
        const Kernel kernel(row.files);
        try {
            kernel.status().available();
            ADD_FAILURE() << row.reason;
        } catch (const MemoryStatusException& exception) {
            EXPECT_EQ(std::string("Failed to get memory status using 'GlobalMemoryStatusEx'. System error "
                                  "message: ") +
                          row.reason,
                      exception.what());
        }
    }
}

TEST(MemoryStatusTest, ThisMachineHasMemory) {
    const MemoryStatusImpl status;
    EXPECT_GT(status.available(), 0u);
    EXPECT_GT(status.total(), status.available());
}
