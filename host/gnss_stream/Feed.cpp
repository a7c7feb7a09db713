#include "host/gnss_stream/Feed.h"

#include <new>

namespace host {

namespace {

constexpr long ring_size = 8192;  // bytes; holds a block of Output::block_limit

}  // namespace

Feed::Feed(kernel::Byte_Client &client)
    : client_(client), server_(kernel::String_Byte_Server::Construct(ring_size, nullptr))
{
    if (!server_) throw std::bad_alloc();
    client.Dont_Delete_Me();
    server_->Connect(&client);
}

void Feed::Give(std::span<const unsigned char> block)
{
    server_->PutBin(block.data(), static_cast<unsigned int>(block.size()));
    server_->Work();
    server_->Clear();
}

}  // namespace host
