// Clients that record what they are told and do what the test says.
#pragma once

#include "kernel/connections/BYTE_SER.h"

#include "tests/support/messages.h"

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

// Records every message; `on` decides for a message and false falls through to Byte_Client's answer.
class Recording_Client : public kernel::Byte_Client {
public:
    using Answer = std::function<bool(kernel::Byte_Server &)>;

    explicit Recording_Client(bool *deleted = nullptr) : Object("recorder"), deleted_(deleted) {}
    ~Recording_Client() override
    {
        if (deleted_) *deleted_ = true;
    }

    Recording_Client &On(kernel::CL_Mesg message, Answer answer)
    {
        answers_.emplace_back(message, std::move(answer));
        return *this;
    }
    Recording_Client &Answer_With(kernel::CL_Mesg message, bool answer)
    {
        return On(message, [answer](kernel::Byte_Server &) { return answer; });
    }
    // Asks for `request` bytes and pulls them when told.
    Recording_Client &Pull(long request)
    {
        On(kernel::Mesg_Request_Invite, [request](kernel::Byte_Server &server) {
            server.Request(request);
            return true;
        });
        return On(kernel::Mesg_Data_Ready, [this, request](kernel::Byte_Server &server) {
            std::string block(static_cast<std::size_t>(request), '\0');
            block.resize(static_cast<std::size_t>(server.GetNBytes(block.data(), request)));
            pulled += block;
            return true;
        });
    }
    // Pulls whatever comes, in blocks.
    Recording_Client &Pull_All()
    {
        On(kernel::Mesg_Request_Invite, [](kernel::Byte_Server &server) {
            server.Request(1);
            return true;
        });
        return On(kernel::Mesg_Data_Ready, [this](kernel::Byte_Server &server) {
            char block[4096];
            long got = 0;
            while ((got = server.GetNBytes(block, sizeof block)) > 0)
                pulled.append(block, static_cast<std::size_t>(got));
            return true;
        });
    }

    bool Send(kernel::Byte_Server &server, kernel::CL_Mesg message) override
    {
        if (records) heard.push_back(message);
        senders.push_back(&server);
        const auto found =
            std::find_if(answers_.begin(), answers_.end(), [=](const auto &entry) { return entry.first == message; });
        return found != answers_.end() ? found->second(server) : Byte_Client::Send(server, message);
    }
    Heard Take() { return std::exchange(heard, {}); }

    using Client::Attached_Ticks;
    using Client::Ticks;

    bool records = true;
    Heard heard;
    std::vector<kernel::Byte_Server *> senders;
    std::string pulled;

private:
    std::vector<std::pair<kernel::CL_Mesg, Answer>> answers_;
    bool *deleted_;
};

// A byte server whose pull operations are the base's.
class Bare_Server : public kernel::Byte_Server {
public:
    explicit Bare_Server(const char *name = "bare") : Object(name) {}
    using Byte_Server::Forward_Send;
    using Byte_Server::Tell;
};
