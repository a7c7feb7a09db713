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

void Print_Text(const char *what, const std::string &text) { std::printf("%-24s %s\n", what, text.c_str()); }

// Shows bytes that are no printable characters as question marks, since a terminal might act on them.
void Print_Text(const char *what, const Rtcm3_Text &text)
{
    std::string printable(text.View());
    for (char &c : printable)
        if (c < ' ' || c > '~') c = '?';
    if (!printable.empty()) Print_Text(what, printable);
}

std::string With_Source(std::optional<int> number, Rtcm3_Clock::Source source)
{
    static constexpr const char *words[] = {
        "", ", as told", ", as told, and ephemerides agree", ", by the stream", ", by message 1013", ", by the table"};
    return (number ? std::to_string(*number) : "none") + words[static_cast<std::size_t>(source)];
}

void Print_Decoding(const Rtcm3_Decoder &decoder)
{
    const Rtcm3_Epoch_Assembler::Counters &epochs = decoder.Epochs();
    Print_Total("incomplete epochs", epochs.incomplete);
    Print_Total("steps back in time", epochs.went_back);
    Print_Total("repeated signals", epochs.repeated_cells);
    Print_Total("undated messages", epochs.undated);
    const Rtcm3_Clock &clock = decoder.Clock();
    Print_Text("week", With_Source(clock.Week(), clock.Week_Source()));
    Print_Text("leap seconds", With_Source(clock.Leap_Seconds(), clock.Leap_Seconds_Source()));
    const auto doubts = [&](Rtcm3_Doubt kind) { return clock.Doubts(kind).count; };
    Print_Total("doubts about the week", doubts(Rtcm3_Doubt::week_by_ephemerides) +
                                             doubts(Rtcm3_Doubt::week_corrected) +
                                             doubts(Rtcm3_Doubt::week_by_leap_seconds));
    Print_Total("doubts on leap seconds", doubts(Rtcm3_Doubt::leap_seconds_by_times));
}

void Print_Equipment(const Rtcm3_Equipment &equipment)
{
    Print_Text("antenna", equipment.antenna);
    Print_Text("antenna serial", equipment.antenna_serial);
    Print_Text("receiver", equipment.receiver);
    Print_Text("firmware", equipment.firmware);
    Print_Text("receiver serial", equipment.receiver_serial);
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
    // The printer first: its clients must outlive the decoder that they are connected to.
    printer_ = std::make_unique<Epoch_Printer>(options_.epochs ? stdout : nullptr);
    decoder_ = std::make_unique<Rtcm3_Decoder>(options_.decoder);
    decoder_->Set_Error_Handler(console_);
    feed_.emplace(*decoder_);
    if (options_.ring != no_ring && !Open_Ring()) return false;
    return printer_->Connect(*decoder_) && (options_.csv.empty() || printer_->Open_Csv(options_.csv, console_));
}

bool Rtcm3_Output::Open_Ring()
{
    ring_ = std::make_unique<Ring_Output>(console_);
    printer_->Also([this](const kernel::EPO_DATA &epoch) { ring_->Publish(epoch); });
    return ring_->Open(options_.ring, options_.ring_slots);
}

Stream_Status Rtcm3_Output::Status() const
{
    const auto count = Reader().Progress();
    return {std::to_string(count.frames) + " frames, " + std::to_string(count.crc_failures) + " CRC failures", ""};
}

bool Rtcm3_Output::Close()
{
    // Before the tables are closed: Finish gives them the last epoch.
    if (decoder_)
        decoder_->Finish();
    else
        reader_.Finish();
    if (ring_) ring_->Close();
    if (printer_) printer_->Close(console_);  // reports a failure, which is then a fault of the run
    return true;                              // no thread was left behind
}

void Rtcm3_Output::Print_Totals() const
{
    Print_Table(Reader());
    if (!printer_) return;
    printer_->Print_Totals(stdout);
    if (ring_) {
        Print_Total("epochs in the ring", ring_->Count().published);
        Print_Total("epochs not in the ring", ring_->Count().refused);
        Print_Total("satellites left out", ring_->Count().left_out);
    }
    Print_Decoding(*decoder_);
    Print_Equipment(decoder_->Equipment());
}

}  // namespace host
