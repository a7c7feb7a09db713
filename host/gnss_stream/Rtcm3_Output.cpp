#include "host/gnss_stream/Rtcm3_Output.h"

#include <cinttypes>

namespace host {

namespace {

void Print_Total(const char *what, std::uint64_t value) { std::printf("%-24s %12" PRIu64 "\n", what, value); }

void Print_Table(const Rtcm3_Frame_Reader &reader)
{
    std::printf("%10s %12s %14s\n", "message", "frames", "bytes");
    for (unsigned int number = 0; number < Rtcm3_Frame_Reader::message_numbers; ++number) {
        const auto &count = reader.Messages(number);
        if (count.frames > 0) std::printf("%10u %12" PRIu64 " %14" PRIu64 "\n", number, count.frames, count.bytes);
    }
    const auto &total = reader.Count();
    Print_Total("bytes read", total.bytes);
    Print_Total("frames", total.frames);
    Print_Total("CRC failures", total.crc_failures);
    Print_Total("skipped bytes", total.skipped);
    Print_Total("incomplete frame bytes", total.tail);
}

}  // namespace

Rtcm3_Output::Rtcm3_Output(const Options &options, Console &console) : options_(options), console_(console) {}

bool Rtcm3_Output::Open()
{
    if (!Decodes()) {
        reader_.Set_Error_Handler(console_);
        feed_.emplace(reader_);
        return true;
    }
    // The printer first: its clients outlive the decoder that they are connected to.
    printer_ = std::make_unique<Epoch_Printer>(options_.epochs ? stdout : nullptr);
    decoder_ = std::make_unique<Rtcm3_Decoder>(options_.decoder);
    decoder_->Set_Error_Handler(console_);
    feed_.emplace(*decoder_);
    return printer_->Connect(*decoder_) && (options_.csv.empty() || printer_->Open_Csv(options_.csv, console_));
}

Stream_Status Rtcm3_Output::Status() const
{
    const auto count = Reader().Progress();
    return {std::to_string(count.frames) + " frames, " + std::to_string(count.crc_failures) + " CRC failures", ""};
}

bool Rtcm3_Output::Close()
{
    // Then the tables: Finish hands on the last epoch, which is to stand in them.
    if (decoder_)
        decoder_->Finish();
    else
        reader_.Finish();
    // What went wrong is reported, and so a fault of the run. The answer here is another one: no thread was left.
    if (printer_) printer_->Close(console_);
    return true;
}

void Rtcm3_Output::Print_Totals() const
{
    Print_Table(Reader());
    if (printer_) printer_->Print_Totals(stdout);
}

}  // namespace host
