// A client of a transport whose reader runs on a thread of its own.
#pragma once

#include "kernel/connections/BYTE_SER.h"

#include "tests/support/messages.h"
#include "tests/support/shared.h"
#include "tests/support/timing.h"

#include <algorithm>
#include <functional>
#include <map>
#include <string>

// Hears and pulls on the reader's thread, while the test reads the results.
class Recorder : public kernel::Byte_Client {
public:
    Recorder() : Object("recorder") { Dont_Delete_Me(); }
    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override
    {
        heard.Add({message});
        if (on_message) on_message(message);
        if (const auto answer = answers.find(message); answer != answers.end()) return answer->second();
        if (message == kernel::Mesg_Request_Invite) return server.Request(1), true;
        return message == kernel::Mesg_Data_Ready ? Pull(server) : kernel::Byte_Client::Send(server, message);
    }
    bool Pull(kernel::Byte_Server &server)
    {
        char block[4096];
        const long got = server.GetNBytes(block, sizeof block);
        pulled.Add({block, static_cast<std::size_t>(got)});
        return true;
    }
    bool Hears(kernel::CL_Mesg message, int times = 1)
    {
        return Soon([&] {
            const Heard all = heard.Now();
            return std::count(all.begin(), all.end(), message) >= times;
        });
    }
    Heard Story() const  // without what comes with time
    {
        Heard story = heard.Now();
        std::erase_if(story, [](kernel::CL_Mesg m) {
            return m == kernel::Mesg_Status_40 || m == kernel::Mesg_Second || m == kernel::Mesg_Byte_Type;
        });
        return story;
    }
    std::map<int, std::function<bool()>> answers;     // in place of its own; set before there is a connection
    std::function<void(kernel::CL_Mesg)> on_message;  // set before there is a connection
    Shared<Heard> heard;
    Shared<std::string> pulled;
};
