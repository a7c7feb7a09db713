// The least that a virtual GetByte can cost. In a source of its own, so that no compiler sees through the call.
#pragma once

#include <memory>

namespace bench {

class Byte_Source {
public:
    virtual ~Byte_Source() = default;
    virtual unsigned short GetByte() = 0;
};

std::unique_ptr<Byte_Source> Make_Constant_Source();  // always 0x55
std::unique_ptr<Byte_Source> Make_Counting_Source();  // 0, 1, ..., 255, 0, ...: the least that changes between calls

}  // namespace bench
