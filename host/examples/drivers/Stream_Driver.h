// A driver around a decoder: what the drivers of this folder share. Copy the folder, and write a format of your own.
//
// A format is a struct with
//   static constexpr char name[]                                        the driver's name
//   Options, Decoder                                                    a byte client, made from the options
//   static bool Set(Options &, std::string_view name, const char *value)  false: an unknown name, or a bad value
//   static kernel::Object_Server *Server(Decoder &, unsigned int index)   null behind the last one
#pragma once

#include "kernel/connections/OBJ_SERV.h"
#include "kernel/services/LoadDriverLibary.h"

#include <charconv>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

namespace drivers {

// A whole number from `least` to `most`, and nothing else.
inline std::optional<int> Number(std::string_view text, int least, int most)
{
    int number = 0;
    const char *const end = text.data() + text.size();
    const auto [read, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || read != end || number < least || number > most) return {};
    return number;
}

// Threads:   as DLL_Loader.
// Ownership: owns the decoder, which is made when it is first asked for; the host disconnects it before Delete.
// Errors:    as DLL_Loader: false or null, and Last_Error().
template <class Format>
class Stream_Driver : public kernel::DLL_Loader {
public:
    explicit Stream_Driver(kernel::Error_Handler &handler) : Object(Format::name, &handler), DLL_Loader(handler) {}

    const char *Driver_Name() const override { return Format::name; }
    int Interface_Version() const override { return kernel::Driver_Interface_Version; }
    const char *Last_Error() const override { return error_; }

    bool Set_Option(const char *name, const char *value) override
    {
        if (decoder_) return Fail("options come before the start");
        return (name && value && Format::Set(options_, name, value)) || Fail("no such option, or a bad value");
    }
    bool Start() override { return Decoder() != nullptr; }
    bool Stop() override
    {
        if (decoder_) decoder_->Finish();
        return decoder_ || Fail("nothing was started");
    }
    kernel::Object_Server *Record_Server(unsigned int index) override
    {
        auto *const decoder = Decoder();
        return decoder ? Format::Server(*decoder, index) : nullptr;
    }
    kernel::Byte_Client *Get_Client() override { return Decoder(); }

private:
    typename Format::Decoder *Decoder()
    {
        try {
            if (!decoder_) {
                decoder_ = std::make_unique<typename Format::Decoder>(options_);
                decoder_->Dont_Delete_Me();
                decoder_->Set_Error_Handler(Get_Error_Handler());
            }
        } catch (...) {
            Fail("memory is short");
        }
        return decoder_.get();
    }
    bool Fail(const char *why)
    {
        error_ = why;
        return false;
    }

    typename Format::Options options_;
    std::unique_ptr<typename Format::Decoder> decoder_;
    const char *error_ = "";
};

template <class Format>
const char *Name_For(int version)
{
    return version == kernel::Driver_Interface_Version ? Format::name : nullptr;
}

// Nothing may be thrown out of a driver.
template <class Format>
kernel::DLL_Loader *New_Driver(int version, kernel::Error_Handler *handler)
{
    try {
        return Name_For<Format>(version) ? new Stream_Driver<Format>(*handler) : nullptr;
    } catch (...) {
        return nullptr;
    }
}

}  // namespace drivers
