// The control messages: what a server says to its client, and the client's reply, true or false. Every change of a
// connection, every question about the other end and every periodic notice is one of these.
//
// The glossary below says for each message who sends it and when, what the reply means to the sender, and in brackets
// [...] what the base client replies: Client::Send where a subclass does not handle the message, Byte_Client::Send and
// Object_Client::Send where they differ. "Nobody" sends: reserved for host programs and for the peers of such. A reply
// that is not mentioned is ignored by its senders. The order of the messages over the life of one connection is drawn
// in docs/architecture.md, "The life of a connection".
//
// In this page a transport is a serial port or a socket; it sends on its reader's thread. A message that is *passed
// down* also reaches the client below an object in the middle of a chain (Byte_Server::Forward_Send); the reply comes
// back up.
#pragma once

namespace kernel {

enum CL_Mesg : int {
    // Between a server and its own client. Not passed down.

    // To the client when an Object_Server connects it: counting starts afresh. False is reported, and nothing else
    // happens. [true; both tick counts become 0, and counting goes on]
    Mesg_Reset_Counters = 10,
    // Disconnect() of every server asks its client. So does a server that ends, and one that replaces a client which
    // may not be deleted. False: a byte client stays connected, unless the server ends or replaces it; a record client
    // is disconnected all the same, with a report. [whether disconnection is allowed: Enable_Disconnect,
    // Disable_Disconnect]
    Mesg_Disconnect_Query = 20,
    // PreDisconnect() asks without disconnecting: would you let go? [as Mesg_Disconnect_Query]
    Mesg_PreDisconnect_Query = 21,
    // The server asks the client that it replaces, and at its end the client that it had: may I delete you? True: the
    // client is deleted. False: it stays its owner's. [true, unless Dont_Delete_Me() was called]
    Mesg_Delete_Query = 120,
    // A serial port saw a break on the line. [true]
    Mesg_Status_250 = 250,

    // What decides whether bytes or records flow. Not passed down: an object in the middle has a dialogue of its own
    // with each neighbour.

    // The server could deliver. The client calls the server's Request(n) with the amount that it wants, and returns
    // true. A transport repeats it after each delivery. False: a transport ends (Serial_Client_Server_Overlapped looks
    // at the request alone), String_Byte_Server::Work returns false, an Object_Server keeps the record. Nothing
    // requested: as false, but Serial_Client_Server asks again, and an Object_Server delivers. [false]
    Mesg_Request_Invite = 70,
    // What was requested is there. From inside this message the client pulls (GetByte, GetNBytes) or takes the record
    // (Get_Object). It is sent again while a request can be met. False: the client refuses the data; a serial port
    // ends, a socket ends when nothing was pulled, and String_Byte_Server::Work returns false. True without a pull:
    // sent again for ever. An Object_Server ignores the reply and looks whether the record was taken. [false]
    Mesg_Data_Ready = 80,

    // The line of a transport. Passed down.

    // The connection is up: the first message that a transport's reader sends for it, before Mesg_Request_Invite. Also
    // sent by Byte_Server::Switch to the new client, once that has its place. Connect does not send it: a client that
    // is connected to a line which is up already does not hear of that. Servers without a line (String_Byte_Server,
    // File_Server) never send it. False: a socket ends with Status_Failed and without a Mesg_Detached; others go on.
    // [true; counting of attached ticks starts at 0]
    Mesg_Attached = 140,
    // The connection is gone, or the reader ends: nothing more comes before the next Mesg_Attached, but for a second
    // Mesg_Detached. A socket sends it when a receive fails, before each reconnection, and at its end; so does Close()
    // of an open socket whose reader does not run. A serial port sends it once, at its end. Byte_Server::Switch sends
    // it to the client that gives up its place. What is left in the transport's buffer can still be pulled from inside
    // it. False: a socket that was about to reconnect ends with Status_Failed. [true; counting of attached ticks stops]
    Mesg_Detached = 150,
    // Fewer bytes are there than were requested. A transport sends it for each second of waiting without data (a
    // Serial_Client_Server does not), String_Byte_Server once when a round ends like that. [true]
    Mesg_Status_40 = 40,
    // A transport asks when its patience of 60 s is over: is that silence all right? A socket's minute begins with the
    // connection, a serial port's with each wait; both begin anew with a true. False: the transport gives up, see
    // Mesg_Status_110. [true]
    Mesg_Status_50 = 50,
    // A transport has given up: the client refused Mesg_Status_50, or a serial port is lost. Mesg_Detached follows.
    // [true]
    Mesg_Status_110 = 110,
    // A serial port found nothing to read and asks the client to let time pass. [true, after sleeping 40 ms]
    Mesg_Pause = 30,

    // Time. Passed down.

    // One second. Transports send it about once a second while they wait for data. [true; the tick counts go up, and
    // the next three are derived]
    Mesg_Second = 200,
    // Each 60th, 3600th and 86400th second, for the server's client. A Byte_Client derives them from all its ticks, an
    // Object_Client from the attached ones. [true]
    Mesg_Minute = 201,
    Mesg_Hour = 202,
    Mesg_Day = 203,

    // Logging in. Passed down. The first three are sent by MesgLogin, MesgAskPassword and MesgStart of a Byte_Server,
    // which hosts call; the reply is theirs.

    Mesg_Login = 160,         // begin to log in at the other end [true; Byte_Client: false]
    Mesg_Ask_Password = 170,  // ask the other end for name and password [true; Byte_Client: false]
    Mesg_Start = 180,         // start without a password [true]
    Mesg_Status_90 = 90,      // Login_Client_Server to its client: logged in [true]
    Mesg_Status_100 = 100,    // likewise: logged out, failed, or too late [true]

    // Byte_Client_Switch sends them to its clients when one of them is to take over. Passed down.

    Mesg_Status_210 = 210,  // to a client in waiting: do you take over? [true]
    Mesg_Status_220 = 220,  // to the one that has taken over [true]
    Mesg_Status_230 = 230,  // to the one that has given up its place [true]

    // Families. Not passed down.

    // Byte_Server::Connect, once the client has its place, and Switch, before that: can you take bytes? False in
    // Connect: reported (3, 26), and the client is disconnected. False in Switch: the old client is disconnected, and
    // the new one is deleted. [false; Byte_Client: true]
    Mesg_Byte_Type = 1000,
    // Object_Server::Connect: can you take records? False: reported (3, 26), and the client is disconnected. [false;
    // Object_Client: true]
    Mesg_Object_Type = 1010,
    // Object_Server::Connect, after that: do you take records over? True: each record is a new one, and the client
    // frees it. False: there is one record, the server's (static mode). [false and a report; Object_Client: true]
    Mesg_Object_Connect = 130,

    // Record types. Connect of the typed server asks last: can you take this type? Eph_Server asks for Mesg_Type_Eph,
    // and so on (kernel/records/Typed_Servers.h; Obs_Server: OBS_SERV.h). False: reported (3, 26), and the client is
    // disconnected. Not passed down. [false; the client of the same type: true]
    Mesg_Type_Obs = 10000,
    Mesg_Type_Eph = 10010,
    Mesg_Type_Pos = 10020,
    Mesg_Type_Alm = 10030,
    Mesg_Type_UTC = 10040,
    Mesg_Type_Voltage = 10041,
    Mesg_Type_Event = 10045,
    Mesg_Type_IONO = 10050,
    Mesg_Type_10060 = 10060,  // nobody
    Mesg_Type_Glo_Eph = 10070,
    Mesg_Type_Met = 10080,
    Mesg_Type_WAAS = 10081,  // [false and a report: clients of WAAS servers must handle it]
    Mesg_Type_RTCM = 10090,

    // Record types of host programs: no server in the library asks for them. A transport that is asked replies to
    // three.
    Mesg_Type_10100 = 10100,
    Mesg_Type_10110 = 10110,  // [Win32_Buffered_Byte_Client: whether it is something else than a socket]
    Mesg_Type_10130 = 10130,
    Mesg_Type_10140 = 10140,  // [Win32_Buffered_Byte_Client: whether it is a socket]
    Mesg_Type_10150 = 10150,
    Mesg_Type_11000 = 11000,  // [Socket_Client_Server: a flag of its subclass's]
    Mesg_Type_20000 = 20000,
};

}  // namespace kernel
