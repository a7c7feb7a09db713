// The control messages that a server sends to its client. Every change of a connection, every question about the other
// end and every periodic notice is one of these; the client answers true or false.
#pragma once

namespace kernel {

// The first word of each comment is the answer of a client that does not handle the message itself.
enum CL_Mesg : int {
    Mesg_Reset_Counters = 10,       // true; tick counts back to 0
    Mesg_Disconnect_Query = 20,     // whether disconnection is allowed
    Mesg_PreDisconnect_Query = 21,  // the same, asked ahead
    Mesg_Pause = 30,                // true, after sleeping 40 ms
    Mesg_Status_40 = 40,            // true; more data is awaited
    Mesg_Status_50 = 50,            // true
    Mesg_Request_Invite = 70,       // false; a pulling client calls the server's Request with the amount it wants
    Mesg_Data_Ready = 80,           // false; a pulling client fetches the data
    Mesg_Status_90 = 90,            // true
    Mesg_Status_100 = 100,          // true
    Mesg_Status_110 = 110,          // true
    Mesg_Delete_Query = 120,        // whether the server may delete the client
    Mesg_Object_Connect = 130,      // false and a report: clients of record servers must handle it
    Mesg_Attached = 140,            // true; counting of attached ticks starts at 0
    Mesg_Detached = 150,            // true; counting of attached ticks stops
    Mesg_Login = 160,               // true; a byte client: false
    Mesg_Ask_Password = 170,        // true; a byte client: false
    Mesg_Start = 180,               // true
    Mesg_Second = 200,              // true; a tick, and the source of the next three
    Mesg_Minute = 201,              // true; every 60th tick
    Mesg_Hour = 202,                // true; every 3600th tick
    Mesg_Day = 203,                 // true; every 86400th tick
    Mesg_Status_210 = 210,          // true
    Mesg_Status_220 = 220,          // true
    Mesg_Status_230 = 230,          // true
    Mesg_Status_250 = 250,          // true, before any other test

    Mesg_Byte_Type = 1000,    // can the client take bytes? A byte client: true
    Mesg_Object_Type = 1010,  // can it take records? false

    // Can the client take this type of record? false
    Mesg_Type_Obs = 10000,
    Mesg_Type_Eph = 10010,
    Mesg_Type_Pos = 10020,
    Mesg_Type_Alm = 10030,
    Mesg_Type_UTC = 10040,
    Mesg_Type_Voltage = 10041,
    Mesg_Type_Event = 10045,
    Mesg_Type_IONO = 10050,
    Mesg_Type_10060 = 10060,
    Mesg_Type_Glo_Eph = 10070,
    Mesg_Type_Met = 10080,
    Mesg_Type_WAAS = 10081,  // false and a report: clients of WAAS servers must handle it
    Mesg_Type_RTCM = 10090,

    // Record types of host programs; no server in the library sends them.
    Mesg_Type_10100 = 10100,
    Mesg_Type_10110 = 10110,
    Mesg_Type_10130 = 10130,
    Mesg_Type_10140 = 10140,
    Mesg_Type_10150 = 10150,
    Mesg_Type_11000 = 11000,
    Mesg_Type_20000 = 20000,
};

}  // namespace kernel
