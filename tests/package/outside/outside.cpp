// The smallest chain: bytes from memory, drained and counted. And the texts that the library ships.
#include "kernel/base/Error_Handler.h"
#include "kernel/bytes/String_Byte_Server.h"
#include "kernel/connections/BYTE_SER.h"
#include "kernel/services/resource_strings.h"

#include <cstring>

int main()
{
    const unsigned char bytes[100] = {};
    kernel::String_Byte_Server *server = kernel::String_Byte_Server::Construct(&kernel::Trace_Handler);
    kernel::Byte_Client_NULL *client = kernel::Byte_Client_NULL::Construct(10);
    const bool worked = server && server->Connect(client) && server->PutBin(bytes, sizeof bytes);
    if (worked) server->Work();
    const bool drained = worked && client->Byte_Count() == sizeof bytes;
    kernel::String_Byte_Server::Destruct(server);  // and with it the client
    const bool is_text = std::strcmp(CST(1019), "GPS ephemeris") == 0;
    return drained && is_text ? 0 : 1;
}
