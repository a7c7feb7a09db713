// Counts the lines of a recording, for example of NMEA 0183 sentences: a client of this program, fed by a File_Server.
#include "kernel/files/file_server.h"

#include <algorithm>
#include <cstdio>

namespace {

class Line_Counter : public kernel::Byte_Client {
public:
    Line_Counter() : Object("Line_Counter") {}  // a virtual base, so the most derived class sets the name

    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override
    {
        switch (message) {
        case kernel::Mesg_Request_Invite: server.Request(1); return true;  // whatever there is
        case kernel::Mesg_Data_Ready: return Pull(server);
        default: return Byte_Client::Send(server, message);
        }
    }

    long long Lines() const { return lines_; }

private:
    bool Pull(kernel::Byte_Server &server)
    {
        unsigned char block[4096];
        const long got = kernel::Bytes_Moved(server.GetNBytes(block, sizeof block), sizeof block);
        lines_ += std::count(block, block + got, '\n');
        return got > 0;
    }

    long long lines_ = 0;
};

}  // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: line_counter RECORDING\n");
        return 2;
    }
    kernel::File_Server *server = kernel::File_Server::Construct(nullptr, false);
    if (!server) return 1;
    auto *counter = new Line_Counter;  // the server deletes it, once it is connected
    const bool fine = server->Connect(counter) && server->Create(argv[1], 0);
    if (fine) {
        while (server->Work(65536)) continue;  // false at the end of the recording
        std::printf("%lld lines\n", counter->Lines());
    }
    kernel::File_Server::Destruct(server);
    return fine ? 0 : 1;
}
