#include "kernel/records/Records.h"

namespace kernel {

bool GloFreqTable::Set(int slot, int channel)
{
    if (slot < 1 || slot > Slots || channel < First_Channel || channel > Last_Channel) return false;
    channels_[static_cast<std::size_t>(slot) - 1] = static_cast<std::int8_t>(channel);
    return true;
}

void GloFreqTable::Clear() { channels_.fill(No_Channel); }

int GloFreqTable::Channel(int slot) const
{
    return slot < 1 || slot > Slots ? No_Channel : channels_[static_cast<std::size_t>(slot) - 1];
}

// 0 rather than what channel 0 has: a wrong carrier would spoil every phase unnoticed.
double GloFreqTable::L1(int slot) const
{
    const int channel = Channel(slot);
    return channel == No_Channel ? 0 : L1_Of(channel);
}

double GloFreqTable::L2(int slot) const
{
    const int channel = Channel(slot);
    return channel == No_Channel ? 0 : L2_Of(channel);
}

// The remainder of all 250 bits, message and parity, by the polynomial of CRC-24Q: zero when no bit was hurt. Bit by
// bit, as 250 is no number of bytes; a satellite sends one message a second.
bool WAAS_Data::Has_Good_Parity() const
{
    constexpr std::uint32_t polynomial = 0x1864CFB, top = 1u << 24;
    std::uint32_t remainder = 0;
    for (unsigned i = 0; i < Message_Bits; ++i) {
        remainder = remainder << 1 | (bits[i / 8] >> (7 - i % 8) & 1u);
        if (remainder & top) remainder ^= polynomial;
    }
    return remainder == 0;
}

}  // namespace kernel
