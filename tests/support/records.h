// Record clients that note what they are told, take what they are offered, and do what the test says.
#pragma once

#include "kernel/connections/OBJ_SERV.h"

#include "tests/support/clients.h"

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

// A client of any kind: wants each record and keeps the pointer. `on` decides for a message and false falls through.
template <class Base = kernel::Object_Client>
class Taking_Client : public Base {
public:
    using Answer = std::function<bool(kernel::Object_Server &)>;

    explicit Taking_Client(bool *deleted = nullptr) : kernel::Object("taker"), deleted_(deleted) {}
    ~Taking_Client() override
    {
        if (deleted_) *deleted_ = true;
    }

    Taking_Client &On(kernel::CL_Mesg message, Answer answer)
    {
        std::erase_if(answers_, [=](const auto &entry) { return entry.first == message; });
        answers_.emplace_back(message, std::move(answer));
        return *this;
    }
    Taking_Client &Answer_With(kernel::CL_Mesg message, bool answer)
    {
        return On(message, [answer](kernel::Object_Server &) { return answer; });
    }

    bool Send(kernel::Object_Server &server, kernel::CL_Mesg message) override
    {
        if (records) heard.push_back(message);
        const auto found =
            std::find_if(answers_.begin(), answers_.end(), [=](const auto &entry) { return entry.first == message; });
        if (found != answers_.end()) return found->second(server);
        if (message == kernel::Mesg_Request_Invite) return true;
        if (message != kernel::Mesg_Data_Ready) return Base::Send(server, message);
        last = server.Get_Object();
        return true;
    }
    Heard Take() { return std::exchange(heard, {}); }

    bool records = true;
    Heard heard;
    void *last = nullptr;

private:
    std::vector<std::pair<kernel::CL_Mesg, Answer>> answers_;
    bool *deleted_;
};
