#include "kernel/memory/RTCM_Ring.h"

#include "kernel/transports/Message_Window.h"
#include "tests/support/segments.h"

#include <cmath>

using namespace kernel;

using RTCM_Ring_test = Segments;

TEST_F(RTCM_Ring_test, publishes_eight_epochs_in_turn)
{
    for (const int ring : {-1, 4, 2}) EXPECT_EQ(RTCM_Ring::Create(ring), nullptr);
    std::string error;
    const auto segment = host::Station_Segment::Create_Rtcm(2, error);
    ASSERT_TRUE(segment) << error;
    RTCM_Ring *ring = RTCM_Ring::Create(2);
    ASSERT_TRUE(ring);
    const auto *const bytes = static_cast<char *>(ring->get_ptr(0));
    Message_Window window;

    EXPECT_EQ(ring->ins_epo(std::nan(""), 0), nullptr);
    rtcm_epo_data *const first = ring->ins_epo(100, 7);
    EXPECT_EQ(reinterpret_cast<char *>(first), bytes + 8 + 2380);
    first->satellites = 3;
    EXPECT_EQ(ring->ins_epo(100.005, 8), first);
    EXPECT_EQ(first->value, 7);
    EXPECT_EQ(ring->get_epo(100.15), first);
    EXPECT_EQ(ring->get_epo(100.25), nullptr);
    EXPECT_NE(ring->get_head(), first);
    ring->ins_done();
    EXPECT_EQ(ring->get_head(), first);
    Message_Window::Message heard;
    do ASSERT_TRUE(window.Receive(heard, 1000));
    while (heard.message != 27003);
    EXPECT_EQ(heard.wparam, 8u);
    EXPECT_EQ(heard.lparam, 2);

    for (int i = 1; i < 9; ++i) {
        ring->ins_epo(100 + i, i);
        ring->ins_done();
    }
    EXPECT_EQ(bytes[4], 1);
    EXPECT_EQ(ring->get_head()->satellites, 0);  // the first one's slot, zeroed
    EXPECT_EQ(ring->get_epo(100), nullptr);
    EXPECT_EQ(ring->ins_epo(108, 1), ring->get_head());
    ring->ins_done();  // moves on in any case, here to an old epoch
    EXPECT_EQ(ring->get_head()->time, 101);
    RTCM_Ring::Delete(ring);
    EXPECT_EQ(ring, nullptr);

    sharemem small("RTCM_3", 100, sharemem::flag_create);
    EXPECT_EQ(RTCM_Ring::Create(3), nullptr) << "smaller than the ring, or not refused";
}
