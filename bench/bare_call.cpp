#include "bench/bare_call.h"

namespace bench {

namespace {

class Constant_Source : public Byte_Source {
    unsigned short GetByte() override { return 0x55; }
};

class Counting_Source : public Byte_Source {
    unsigned short GetByte() override { return next_++; }
    unsigned char next_ = 0;
};

}  // namespace

std::unique_ptr<Byte_Source> Make_Constant_Source() { return std::make_unique<Constant_Source>(); }

std::unique_ptr<Byte_Source> Make_Counting_Source() { return std::make_unique<Counting_Source>(); }

}  // namespace bench
