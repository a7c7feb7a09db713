#include "host/gnss_stream/Driver_Output.h"

#include "host/gnss_stream/File_Name.h"

#include <filesystem>
#include <system_error>

namespace host {

namespace {

const char unit[] = "host/Driver_Output";

// LoadDriverLibrary does not tell.
const char *Why_Not(const std::string &file)
{
    std::error_code ignored;
    if (file.find_first_of("/\\") == file.npos) return "Its folder is not named; ./ is the current one.";
    if (!std::filesystem::exists(Path_Of(file), ignored)) return "There is no such file.";
    return "It is no library of this system, needs one that is missing, or may not be read.";
}

}  // namespace

Driver_Output::Driver_Output(const Options &options, Console &console)
    : options_(options), console_(console), printer_(stdout, stdout)
{
}

Driver_Output::~Driver_Output()
{
    feed_.reset();
    kernel::DLL_Loader::Delete(driver_);
    kernel::Free_Driver_Library(library_);
}

bool Driver_Output::Complain(unsigned int line, const std::string &text)
{
    console_.Set(unit, line)->Print_Out(kernel::Error_Handler::ES_Error, "%s", text.c_str());
    return false;
}

bool Driver_Output::Open()
{
    const std::string &file = options_.file;
    library_ = kernel::LoadDriverLibrary(file.c_str(), nullptr, &console_);
    if (!library_) return Complain(__LINE__, "Driver \"" + file + "\" cannot be loaded. " + Why_Not(file));
    driver_ = kernel::Create_Driver_Loader(library_, &console_);
    if (!driver_ || !Set_Options()) return false;
    name_ = driver_->Driver_Name();
    kernel::Byte_Client *const client = driver_->Get_Client();
    if (!client) return Complain(__LINE__, "Driver " + name_ + " takes no bytes.");
    Connect_Servers();
    feed_.emplace(*client);
    return driver_->Start() || Complain(__LINE__, "Driver " + name_ + " does not start: " + driver_->Last_Error());
}

bool Driver_Output::Set_Options()
{
    for (const auto &[name, value] : options_.settings) {
        if (!driver_->Set_Option(name.c_str(), value.c_str()))
            return Complain(__LINE__, "The driver refuses " + name + '=' + value + ": " + driver_->Last_Error());
    }
    return true;
}

void Driver_Output::Connect_Servers()
{
    for (unsigned int i = 0; kernel::Object_Server *const server = driver_->Record_Server(i); ++i) {
        if (printer_.Connect(*server)) continue;
        console_.Set(unit, __LINE__)
            ->Print_Out(kernel::Error_Handler::ES_Warning, "Records of %s are not shown.", server->GetName());
    }
}

void Driver_Output::Put(std::span<const unsigned char> block)
{
    feed_->Give(block);
    bytes_.fetch_add(block.size(), std::memory_order_relaxed);
}

bool Driver_Output::Close()
{
    if (driver_ && feed_) driver_->Stop();
    return true;  // no thread was left behind
}

}  // namespace host
