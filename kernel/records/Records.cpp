#include "kernel/records/Records.h"

#include "kernel/records/Crc24q.h"

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

// An unknown slot returns 0 and not the carrier of channel 0: a wrong carrier would falsify every phase unnoticed.
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

// Crc24q needs whole bytes: moves the six zero bits from the end to the front, where they do not change the remainder.
bool WAAS_Data::Has_Good_Parity() const
{
    std::array<unsigned char, 32> padded;
    static_assert(8 * padded.size() == Message_Bits + 6);
    for (std::size_t i = 0; i < padded.size(); ++i)
        padded[i] = static_cast<unsigned char>((i > 0 ? bits[i - 1] << 2 : 0) | bits[i] >> 6);
    return Crc24q(padded) == 0;
}

}  // namespace kernel
