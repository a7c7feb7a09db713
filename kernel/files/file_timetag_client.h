// Records a byte stream into a file, and beside it when each block came.
#pragma once

#include "kernel/files/file_client.h"

#include <cstdint>
#include <memory>
#include <string>

namespace kernel {

// A File_Client with a second file, the time tags: a header, then one row per Mesg_Data_Ready with the time of
// reception, the size of the data file after the block, and the block's length. docs/formats.md describes the rows. The
// rows carry UTC as the machine's clock shows it, so a clock that is set leaves a step in them.
//
// The name of the tag file is the data file's with everything from the last '.' on replaced by ".tmt". The '.' may
// stand in the name of a folder; the rule is part of the interface. A name without a '.', and one that ends in ".tmt"
// in whatever case, gets ".tmt" appended. So two recordings whose names differ only behind the last '.' share one tag
// file.
//
// Threads:   as File_Client.
// Ownership: both open files; nobody else may write to them until Close. Belongs to its server (see Client_Server).
// Errors:    Kernel/file_timetag_client: level 2, code 9 "Timetag file %s already open"; level 3, code 9 "Could not
//            open file %s", "Could not write header of timetag file %s", "Could not write to timetag file %s", "Could
//            not write to file %s", "Could not obtain file pointer of file %s"; code 18 no memory; and the reports of
//            File_Client. A failed write of the tags closes the tag file, and the data are recorded without tags from
//            then on. A failed write of the data closes both. Invalid while a tag file's name is set and it is not
//            open.
class KERNEL_API File_TimeTag_Client : public File_Client {
public:
    static const char Name[];  // "File_TimeTag_Client"
    static const char *ClassName() { return Name; }
    bool IsInheritedFrom(const char *name) const override;

    // Opens both files as Create does; one that cannot be opened is reported (see File_Client::Construct).
    static File_TimeTag_Client *Construct(const char *name);
    static File_TimeTag_Client *Construct();
    static void Destruct(File_TimeTag_Client *client) { Object::Destruct(client); }

    // A copy has neither file, and an assigned one keeps its own (see File_Client).
    File_TimeTag_Client(const File_TimeTag_Client &other);
    File_TimeTag_Client &operator=(const File_TimeTag_Client &other);
    ~File_TimeTag_Client() override;

    // The name of the tag file that belongs to a data file. Empty when it would have 260 bytes or more, and when memory
    // is short.
    static std::string Tag_File_Name(const char *data_name);

    // Opens both files and cuts off what was there. False: the data file could not be opened; or it is open, and the
    // tag file is not: its name would have 260 bytes or more, or it could not be opened. Null closes.
    bool Create(const char *name);
    void Close();
    bool IsValid() const override;
    bool Send(Byte_Server &server, CL_Mesg message) override;

protected:
    File_TimeTag_Client();

    bool WriteTimeTagHeader();  // false: reported, and the tag file is closed
    void WriteToFile(unsigned char *bytes, unsigned int n);
    void WriteToTimetagFile(unsigned int length);  // a row for the block that was just written
    // The size of an open data file [bytes], which is at its end; 0 for null. A failure is reported under that name.
    std::int64_t GetFilePointer(void *file, const char *name);
    double GetTimeStamp();  // [s] UTC now since the GPS epoch, leap seconds not counted
    void CloseTimeTagFile();

private:
    std::shared_ptr<platform::File> tags_;  // null when closed
    std::unique_ptr<char[]> tags_name_;     // null when closed
};

}  // namespace kernel
