// Every class that is made by Construct, without memory.
#include "kernel/base/Error_Handler.h"
#include "kernel/bytes/String_Byte_Server.h"
#include "kernel/connections/OBJ_SERV.h"
#include "kernel/files/file_client.h"
#include "kernel/files/file_client_server.h"
#include "kernel/files/file_list_server.h"
#include "kernel/files/file_server.h"
#include "kernel/records/OBS_SERV.h"
#include "kernel/records/Typed_Servers.h"
#include "kernel/transports/Serial_Client_Server.h"
#include "kernel/transports/Serial_Client_Server_Overlapped.h"
#include "kernel/transports/Socket_Client_Server.h"
#include "kernel/transports/Socket_Multi_Server.h"

#include "tests/support/folder.h"
#include "tests/support/short_memory.h"

#include <gtest/gtest.h>

using namespace kernel;

TEST(Construct, answers_null_without_memory_and_leaves_nothing)
{
    static NULL_Error_Handler handler;
    static Test_Folder folder;
    static const std::string copy = folder / "copy";
    struct Row {
        const char *name;
        Object *(*make)();
    };
#define MADE_BY(Class, ...)                                                                                            \
    {                                                                                                                  \
#Class, []() -> Object * { return Class::Construct(__VA_ARGS__); }                                             \
    }
    const Row rows[] = {
        MADE_BY(String_Byte_Server, 100, &handler),
        MADE_BY(Byte_Client_NULL, 100),
        MADE_BY(Object_Client),
        MADE_BY(Object_Client_NULL, Mesg_Object_Type),
        MADE_BY(Obs_Server),
        MADE_BY(Obs_Client),
        MADE_BY(Pos_Server),
        MADE_BY(Pos_Client),
        MADE_BY(File_Server, nullptr, false),
        MADE_BY(File_List_Server, nullptr),
        MADE_BY(Simulator_File_Server, nullptr),
        MADE_BY(File_Client),
        MADE_BY(File_Client, copy.c_str()),
        MADE_BY(File_Client_Server, copy.c_str()),
        MADE_BY(Socket_Client_Server, handler, 1000u),
        MADE_BY(Socket_Multi_Server, &handler, false, 1000u),
        MADE_BY(Multicast_Client_Identifier, nullptr, &handler),
        MADE_BY(Serial_Client_Server, handler, nullptr),
        MADE_BY(Serial_Client_Server_Overlapped, handler, nullptr),
    };
#undef MADE_BY
    Object::Set_Default_Handler(new NULL_Error_Handler);
    for (const Row &row : rows) {
        Object::Destruct(row.make());  // what is made once
        const long before = replaced_new::living;
        Object *made = nullptr;
        EXPECT_GT(Refused_Without_Memory([&] { return (made = row.make()) != nullptr; }), 0) << row.name;
        Object::Destruct(made);
        EXPECT_EQ(replaced_new::living, before) << row.name;
    }
}
