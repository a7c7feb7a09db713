#include "platform/replaced_file.h"

#include "platform/error.h"

namespace platform {

// NAME.new goes while it is open, because it locks other writers out.
Replaced_File::~Replaced_File()
{
    if (!stream_) return;
    remove_fresh();
    std::fclose(stream_);
}

bool Replaced_File::commit()
{
    if (!stream_) return false;
    if (std::ferror(stream_)) set_last_error(error_write_fault);
    const bool good = std::ferror(stream_) == 0 && force_out() && take_place();
    const std::uint32_t error = last_error();
    if (!good) remove_fresh();
    std::fclose(stream_);
    stream_ = nullptr;
    set_last_error(error);
    return good;
}

}  // namespace platform
