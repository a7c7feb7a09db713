// The output that reads the stream with a driver library and shows the driver's records.
#pragma once

#include "host/gnss_stream/Console.h"
#include "host/gnss_stream/Endpoint.h"
#include "host/gnss_stream/Epoch_Printer.h"
#include "host/gnss_stream/Feed.h"
#include "kernel/services/LoadDriverLibary.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace host {

// Threads:   as Output. Call Print_Totals after Close.
// Ownership: as Endpoint.
// Errors:    Open returns false, and reports why, when the library cannot be loaded, gives no object or no byte client,
//            or refuses an option. A record server of a kind that is not shown is a warning.
class Driver_Output : public Output {
public:
    struct Options {
        std::string file;  // the library; empty: none
        std::vector<std::pair<std::string, std::string>> settings;
    };
    Driver_Output(const Options &options, Console &console);
    ~Driver_Output() override;

    bool Open() override;
    bool Is_Up() const override { return true; }
    std::size_t Room() const override { return static_cast<std::size_t>(-1); }
    void Put(std::span<const unsigned char> block) override;
    bool Is_Drained() const override { return true; }
    std::uint64_t Sent() const override { return bytes_.load(std::memory_order_relaxed); }
    Stream_Status Status() const override { return {"driver " + name_, ""}; }
    bool Close() override;

    void Print_Totals() const { printer_.Print_Totals(stdout); }

private:
    bool Set_Options();
    void Connect_Servers();
    bool Complain(unsigned int line, const std::string &text);

    const Options options_;
    Console &console_;
    Epoch_Printer printer_;
    // Destroyed from below: the feed, the driver's object, its library.
    kernel::Driver_Module library_ = nullptr;
    kernel::DLL_Loader *driver_ = nullptr;
    std::string name_;
    std::optional<Feed> feed_;
    std::atomic<std::uint64_t> bytes_{0};  // relaxed: for display only
};

}  // namespace host
