#include "host/gnss_stream/Mail_Rule.h"

namespace host {

Mail_Rule::Mail Mail_Rule::Pass(Clock::time_point last_well, Clock::time_point now)
{
    const bool is_bad = last_well < now && now - last_well >= after_;
    if (is_bad)
        well_since_.reset();
    else if (is_told_ && !well_since_)
        well_since_ = last_well;
    if (is_bad == is_told_ || (mailed_ && now - *mailed_ < pause)) return Mail::none;

    mailed_ = now;
    is_told_ = is_bad;
    if (is_bad) bad_since_ = last_well;
    lasted_ = (is_bad ? now : *well_since_) - bad_since_;
    well_since_.reset();
    return is_bad ? Mail::bad : Mail::well;
}

}  // namespace host
