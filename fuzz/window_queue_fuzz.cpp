// The queue of a window, into which any process of the user may write: messages come whole and in order, also between
// foreign bytes. The input is a sequence of commands: a byte n, then n % 64 foreign bytes; for n from 0x80 on a message
// is posted instead. On Windows there is no way to write foreign bytes, and they are left out.
#include "fuzz/Require.h"
#include "platform/window.h"
#include "tests/support/environment.h"
#include "tests/support/folder.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <span>
#include <string>
#include <vector>

namespace {

using platform::Window_Message;

constexpr std::uint32_t magic = 0x57474E53;
constexpr std::uint32_t first_message = 0x400;  // lower numbers are Windows' own
constexpr std::size_t most_bytes = 16384;       // less than the queue holds, so that writing does not wait

// A message as it stands in the queue.
struct Record {
    std::uint32_t mark;
    std::uint32_t message;
    std::uint64_t wparam;
    std::int64_t lparam;
};

class Runtime_Folder : public Test_Folder {
public:
    Runtime_Folder() { std::filesystem::permissions(Path(), std::filesystem::perms::owner_all); }
    std::filesystem::path Path() const { return std::filesystem::path(*this / "").parent_path(); }

private:
    Environment_Setting setting_{"GNSS_KERNEL_RUNTIME_DIR", Path().string()};
};

// The messages that a slow reading of the bytes finds.
std::vector<Record> Naive_Messages(const std::string &bytes)
{
    std::vector<Record> found;
    for (std::size_t at = 0; at + sizeof(Record) <= bytes.size();) {
        Record record;
        std::memcpy(&record, bytes.data() + at, sizeof record);
        if (record.mark == magic) found.push_back(record);
        at += record.mark == magic ? sizeof record : 1;
    }
    return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const Runtime_Folder folder;
    const auto window = platform::Window::create();
    Require(window != nullptr, "no window");
    const auto number = reinterpret_cast<std::uintptr_t>(window->handle());
    const std::filesystem::path queue = folder.Path() / ("window-" + std::to_string(number));
    const bool can_write = std::filesystem::exists(queue);

    std::string stream;
    std::span<const std::uint8_t> rest(data, size);
    while (!rest.empty() && stream.size() < most_bytes) {
        const std::uint8_t command = rest[0];
        rest = rest.subspan(1);
        if (command >= 0x80) {
            const Window_Message message{first_message + command, stream.size(), -std::int64_t{command}};
            Require(platform::post_message(window->handle(), message), "a message refused");
            const Record record{magic, message.message, message.wparam, message.lparam};
            stream.append(reinterpret_cast<const char *>(&record), sizeof record);
            continue;
        }
        const std::string foreign(rest.begin(),
                                  rest.begin() + std::min<std::ptrdiff_t>(command % 64, std::ssize(rest)));
        rest = rest.subspan(foreign.size());
        if (!can_write) continue;
        std::ofstream(queue, std::ios::binary) << foreign;
        stream += foreign;
    }

    Window_Message message;
    for (const Record &expected : Naive_Messages(stream)) {
        Require(window->receive(message, 0), "a message lost");
        Require(message.message == expected.message && message.wparam == expected.wparam &&
                    message.lparam == expected.lparam,
                "another message");
    }
    Require(!window->receive(message, 0), "a message from nowhere");
    return 0;
}
