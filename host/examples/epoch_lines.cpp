// Prints a line per observation epoch of an RTCM 3 recording: the decoder library, fed by a File_Server.
#include "host/decoders/Record_Client.h"
#include "host/decoders/Rtcm3_Decoder.h"
#include "kernel/files/file_server.h"

#include <cstdio>

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: epoch_lines RECORDING\n");
        return 2;
    }
    // Made before the decoder, so that it outlives it: the decoder sends it records until its own end.
    host::Obs_Record_Client printer([](std::unique_ptr<kernel::EPO_DATA> epoch) {
        const kernel::Gps_Time time = epoch->ReadGPSTime();
        std::printf("%u %.3f  %d satellites\n", time.week, time.sec, int{epoch->ReadUint8Epo(kernel::EPO_SATELLITES)});
    });
    printer.Dont_Delete_Me();
    host::Rtcm3_Decoder decoder;
    decoder.Dont_Delete_Me();

    kernel::File_Server *server = kernel::File_Server::Construct(nullptr, false);
    if (!server) return 1;
    const bool fine =
        decoder.Observations().Connect(&printer) && server->Connect(&decoder) && server->Create(argv[1], 0);
    if (fine) {
        while (server->Work(65536)) continue;  // false at the end of the recording
        decoder.Finish();
    }
    kernel::File_Server::Destruct(server);
    return fine ? 0 : 1;
}
