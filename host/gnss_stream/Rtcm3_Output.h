// The output that reads the stream itself: counts RTCM 3 frames, and decodes them on request.
#pragma once

#include "host/decoders/Rtcm3_Decoder.h"
#include "host/decoders/Rtcm3_Frame_Reader.h"
#include "host/gnss_stream/Console.h"
#include "host/gnss_stream/Endpoint.h"
#include "host/gnss_stream/Epoch_Printer.h"
#include "host/gnss_stream/Feed.h"
#include "host/gnss_stream/Ring_Output.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace host {

// Threads:   as Output. Call Has_Bad_Frames and Print_Totals after Close.
// Ownership: as Endpoint.
// Errors:    Open returns false when a table cannot be created. Otherwise as Rtcm3_Decoder and Epoch_Printer.
class Rtcm3_Output : public Output {
public:
    static constexpr int no_ring = -1;

    struct Options {
        bool decode = false;
        bool epochs = false;           // lines per epoch and satellite, on standard output
        std::string csv;               // prefix of the names of two tables; empty: none
        int ring = no_ring;            // station ring that epochs are published into
        std::uint32_t ring_slots = 0;  // of a ring that is made for it; 0: it is there
        Rtcm3_Options decoder;
    };
    Rtcm3_Output(const Options &options, Console &console);

    bool Open() override;
    bool Is_Up() const override { return true; }
    std::size_t Room() const override { return static_cast<std::size_t>(-1); }
    void Put(std::span<const unsigned char> block) override { feed_->Give(block); }
    bool Is_Drained() const override { return true; }
    std::uint64_t Sent() const override { return Reader().Progress().bytes; }
    Stream_Status Status() const override;
    bool Close() override;

    Rtcm3_Frame_Reader::Progress_Count Count() const { return Reader().Progress(); }  // any thread
    bool Has_Bad_Frames() const { return Reader().Count().crc_failures > 0; }
    void Print_Totals() const;  // on standard output

private:
    const Rtcm3_Frame_Reader &Reader() const { return decoder_ ? decoder_->Reader() : reader_; }
    bool Decodes() const
    {
        return options_.decode || options_.epochs || !options_.csv.empty() || options_.ring != no_ring;
    }
    bool Open_Ring();

    const Options options_;
    Console &console_;
    std::unique_ptr<Ring_Output> ring_;       // null: epochs go into no ring
    Rtcm3_Frame_Reader reader_;               // unused with a decoder, which has its own
    std::unique_ptr<Epoch_Printer> printer_;  // null, like the decoder, when nothing is decoded
    std::unique_ptr<Rtcm3_Decoder> decoder_;
    std::optional<Feed> feed_;  // destroyed before its client
};

}  // namespace host
