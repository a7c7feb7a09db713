#include "kernel/memory/Alm_Data_Client.h"

#include "tests/support/reports.h"
#include "tests/support/segments.h"

using namespace kernel;

using Alm_Data_Client_test = Segments;

TEST_F(Alm_Data_Client_test, keeps_the_newest_of_each_satellite_for_others_and_later)
{
    Heard_Reports reports;
    const Environment_Setting temp("TEMP", "set"), tmp("TMP", folder / "");
    const std::string name = "almanacs_" + std::to_string(std::hash<std::string>()(folder / ""));
    EXPECT_EQ(Alm_Data_Client::Construct(name.c_str(), 0), nullptr);  // nothing to open
    auto *client = Alm_Data_Client::Construct(name.c_str());
    Alm_Server *const server = Alm_Server::Construct();
    ASSERT_TRUE(client && server);
    EXPECT_TRUE(client->IsInheritedFrom("Alm_Data_Client"));
    ASSERT_TRUE(server->Connect(client));
    for (const int prn : {7, 7, 32, 33, 0}) {
        almanac *record = server->Malloc_Alm();
        record->prn = prn;
        record->af1 = prn + 0.5;
        record->week = static_cast<int>(client->get_count(7));
        EXPECT_TRUE(server->Send_Alm(record));
    }
    EXPECT_TRUE(reports->Has("The almanac of satellite 33 cannot be kept."));
    Alm_Data_Client *const reader = Alm_Data_Client::Construct(name.c_str(), 0);
    ASSERT_TRUE(reader);
    almanac read;
    EXPECT_TRUE(reader->get_almanac(7, read));
    EXPECT_EQ(read.week, 1);
    EXPECT_EQ(read.af1, 7.5);
    EXPECT_EQ(reader->get_count(7), 2u);
    for (const int prn : {0, 1, 33, -1}) EXPECT_FALSE(reader->get_almanac(prn, read)) << prn;
    auto *const bytes = static_cast<std::uint32_t *>(reader->get_ptr(8 + 104 * 31));
    EXPECT_EQ(bytes[0], 2u);
    EXPECT_EQ(bytes[2], 32u);
    ++bytes[0];
    EXPECT_FALSE(reader->get_almanac(32, read)) << "the writer is inside";
    Alm_Data_Client::Destruct(reader);
    Alm_Server::Destruct(server);  // and the client

    client = Alm_Data_Client::Construct(name.c_str());  // from the file
    ASSERT_TRUE(client);
    EXPECT_TRUE(client->get_almanac(7, read));
    *static_cast<std::uint32_t *>(client->get_ptr(0)) = 2;
    EXPECT_EQ(Alm_Data_Client::Construct(name.c_str()), nullptr) << "another layout";
    Alm_Data_Client::Destruct(client);
}
