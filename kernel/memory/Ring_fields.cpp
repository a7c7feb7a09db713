// The accessors of a ring's fields: those of the header, then those of records.
#include "kernel/memory/Ring.h"
#include "kernel/memory/ring_words_internal.h"

#include <algorithm>
#include <cstring>

namespace kernel {

namespace {

template <std::size_t n>
double Component(std::array<double, n> *values, int i)
{
    return values && i >= 0 && i < static_cast<int>(n) ? Load((*values)[static_cast<std::size_t>(i)]) : 0;
}

template <std::size_t n>
void Set_Component(std::array<double, n> *values, int i, double value)
{
    if (values && i >= 0 && i < static_cast<int>(n)) Store((*values)[static_cast<std::size_t>(i)], value);
}

template <std::size_t n>
void Copy_To(std::array<double, n> *values, double *target)
{
    for (int i = 0; target && i < static_cast<int>(n); ++i) target[i] = Component(values, i);
}

template <std::size_t n>
void Copy_From(const double *source, std::array<double, n> *values)
{
    for (int i = 0; source && i < static_cast<int>(n); ++i) Set_Component(values, i, source[i]);
}

void Copy_Name(const std::array<char, 32> *name, char (&text)[32])
{
    std::fill_n(text, sizeof text, '\0');
    if (name) std::copy_n(name->begin(), sizeof text - 1, text);
}

void Set_Name(std::array<char, 32> *name, const char *text)
{
    if (!name || !text) return;
    name->fill('\0');
    std::copy_n(text, std::min(std::strlen(text), name->size() - 1), name->begin());
}

void Add_To_Mean(double &mean, double value, std::uint32_t count) { Store(mean, mean + (value - mean) / count); }

void Add_To_Means(std::array<double, 3> &means, const double *values, std::uint32_t &count)
{
    if (count + 1 != 0) ++count;  // it stays at its greatest value
    for (std::size_t i = 0; i < means.size(); ++i) Add_To_Mean(means[i], values[i], count);
}

bool Has(const REFDATA *record, std::uint32_t what) { return record && (record->flags & what) != 0; }

using Solution = std::array<double, 3> REFDATA::*;

bool Read_Solution(const REFDATA *record, std::uint32_t flag, Solution solution, double *xyz)
{
    if (!Has(record, flag) || !xyz) return false;
    std::copy((record->*solution).begin(), (record->*solution).end(), xyz);
    return true;
}

bool Set_Solution(REFDATA *record, std::uint32_t flag, Solution solution, const double *xyz)
{
    if (!record || !xyz) return false;
    std::copy_n(xyz, 3, (record->*solution).begin());
    record->flags |= flag;
    return true;
}

}  // namespace

// --- The header. KERNEL_VECTOR: by component and as an array; KERNEL_FIELD: a number.

#define KERNEL_VECTOR(name)                                                                                            \
    double Ring::get_##name(int i) const                                                                               \
    {                                                                                                                  \
        Ring_Header *const fields = Fields();                                                                          \
        return Component(fields ? &fields->name : nullptr, i);                                                         \
    }                                                                                                                  \
    void Ring::get_##name(double *values) const                                                                        \
    {                                                                                                                  \
        Ring_Header *const fields = Fields();                                                                          \
        Copy_To(fields ? &fields->name : nullptr, values);                                                             \
    }                                                                                                                  \
    void Ring::set_##name(const double *values)                                                                        \
    {                                                                                                                  \
        Ring_Header *const fields = Fields();                                                                          \
        Copy_From(values, fields ? &fields->name : nullptr);                                                           \
    }
#define KERNEL_COMPONENT(name)                                                                                         \
    void Ring::set_##name(int i, double value)                                                                         \
    {                                                                                                                  \
        Ring_Header *const fields = Fields();                                                                          \
        Set_Component(fields ? &fields->name : nullptr, i, value);                                                     \
    }
#define KERNEL_READ(type, getter, field)                                                                               \
    type Ring::getter() const                                                                                          \
    {                                                                                                                  \
        Ring_Header *const fields = Fields();                                                                          \
        return fields ? Load(fields->field) : 0;                                                                       \
    }
#define KERNEL_FIELD(type, name, field)                                                                                \
    KERNEL_READ(type, get_##name, field)                                                                               \
    void Ring::set_##name(type value)                                                                                  \
    {                                                                                                                  \
        if (Ring_Header *const fields = Fields()) Store(fields->field, static_cast<decltype(fields->field)>(value));   \
    }
#define KERNEL_NAME(name)                                                                                              \
    void Ring::get_##name(char(&text)[32]) const                                                                       \
    {                                                                                                                  \
        Ring_Header *const fields = Fields();                                                                          \
        Copy_Name(fields ? &fields->name : nullptr, text);                                                             \
    }                                                                                                                  \
    void Ring::set_##name(const char *text)                                                                            \
    {                                                                                                                  \
        Ring_Header *const fields = Fields();                                                                          \
        Set_Name(fields ? &fields->name : nullptr, text);                                                              \
    }

KERNEL_VECTOR(pos)
KERNEL_VECTOR(ref_pos)
KERNEL_COMPONENT(ref_pos)
KERNEL_VECTOR(off_l1)
KERNEL_COMPONENT(off_l1)
KERNEL_VECTOR(off_l2)
KERNEL_COMPONENT(off_l2)
KERNEL_VECTOR(cal_data)
KERNEL_COMPONENT(cal_data)
KERNEL_NAME(ant_number)
KERNEL_NAME(ant_type)
KERNEL_NAME(point_number)
KERNEL_READ(double, get_clk_error, clk_error)
KERNEL_READ(double, get_clk_drift, clk_drift)
KERNEL_READ(double, get_clk_error_var, clk_error_var)
KERNEL_READ(double, get_clk_drift_var, clk_drift_var)
KERNEL_READ(unsigned long, get_clk_reset, clk_resets)
KERNEL_READ(double, get_mean_temp, mean_temp)
KERNEL_READ(double, get_mean_press, mean_press)
KERNEL_READ(double, get_mean_hum, mean_hum)
KERNEL_READ(double, get_last_temp, last_temp)
KERNEL_READ(double, get_last_press, last_press)
KERNEL_READ(double, get_last_hum, last_hum)
KERNEL_FIELD(double, interval, interval)
KERNEL_FIELD(double, cutoff, cutoff)
KERNEL_FIELD(double, last_obs, last_obs)
KERNEL_FIELD(double, Code_Phase_Value, code_phase_value)
KERNEL_FIELD(unsigned long, File_Length, file_length)
KERNEL_FIELD(unsigned long, max_channel, max_channel)
KERNEL_FIELD(unsigned long, decoder, decoder)
KERNEL_FIELD(unsigned long, obs_type, obs_type)
KERNEL_FIELD(unsigned long, has, has)
KERNEL_FIELD(unsigned long, start_rtime, start_time)

double Ring::get_ref_off(int i) const { return valid() ? Component(&header_->ref_off, i) : 0; }

void Ring::get_ref_off(double *neu) const { Copy_To(valid() ? &header_->ref_off : nullptr, neu); }

void Ring::set_ref_off(int i, double value)
{
    if (!valid()) return;
    Set_Component(&header_->ref_off, i, value);
    Store(header_->flags, header_->flags | Ring_Header::Has_Ref_Off);
}

void Ring::set_ref_off(const double *neu)
{
    for (int i = 0; neu && i < 3; ++i) set_ref_off(i, neu[i]);
}

bool Ring::has_ref_off() const { return valid() && (Load(header_->flags) & Ring_Header::Has_Ref_Off) != 0; }

bool Ring::is_rogue() const { return valid() && (Load(header_->flags) & Ring_Header::Is_Rogue) != 0; }

void Ring::set_rogue(bool rogue)
{
    if (!valid()) return;
    const std::uint32_t others = header_->flags & ~Ring_Header::Is_Rogue;
    Store(header_->flags, rogue ? others | Ring_Header::Is_Rogue : others);
}

bool Ring::get_sat_enable_receiver(unsigned satellite) const
{
    return valid() && satellite < Ring_Header::Satellites &&
           (Load(header_->disabled[satellite / 8]) >> satellite % 8 & 1) == 0;
}

void Ring::set_sat_enable_receiver(unsigned satellite)
{
    if (!valid() || satellite >= Ring_Header::Satellites) return;
    std::uint8_t &byte = header_->disabled[satellite / 8];
    Store(byte, static_cast<std::uint8_t>(byte & ~(1u << satellite % 8)));
}

void Ring::set_sat_disable_receiver(unsigned satellite)
{
    if (!valid() || satellite >= Ring_Header::Satellites) return;
    std::uint8_t &byte = header_->disabled[satellite / 8];
    Store(byte, static_cast<std::uint8_t>(byte | 1u << satellite % 8));
}

// --- Solutions

bool Ring::get_ant(const REFDATA *record, double *xyz) const
{
    return Read_Solution(record, REFDATA::Has_Ant, &REFDATA::ant, xyz);
}

void Ring::set_ant(REFDATA *record, const double *xyz)
{
    if (valid() && Set_Solution(record, REFDATA::Has_Ant, &REFDATA::ant, xyz))
        Add_To_Means(header_->ant_mean, xyz, header_->ant_count);
}

void Ring::get_ant_mean(double *xyz) const { Copy_To(valid() ? &header_->ant_mean : nullptr, xyz); }

bool Ring::get_spp(const REFDATA *record, double *xyz) const
{
    return Read_Solution(record, REFDATA::Has_Spp, &REFDATA::spp, xyz);
}

void Ring::set_spp(REFDATA *record, const double *xyz)
{
    if (valid() && Set_Solution(record, REFDATA::Has_Spp, &REFDATA::spp, xyz))
        Add_To_Means(header_->spp_mean, xyz, header_->spp_count);
}

void Ring::get_spp_mean(double *xyz) const { Copy_To(valid() ? &header_->spp_mean : nullptr, xyz); }

bool Ring::has_spp(const REFDATA *record) { return Has(record, REFDATA::Has_Spp); }

double Ring::get_spp_error(const REFDATA *record) { return record ? record->spp_error : 0; }

void Ring::set_spp_error(REFDATA *record, double error)
{
    if (record) record->spp_error = error;
}

double Ring::get_dop(const REFDATA *record, int i)
{
    return record && i >= 0 && i < 4 ? double{record->dop[static_cast<std::size_t>(i)]} : 0;
}

void Ring::set_dop(REFDATA *record, int i, double value)
{
    if (record && i >= 0 && i < 4) record->dop[static_cast<std::size_t>(i)] = static_cast<float>(value);
}

// --- Clock

void Ring::set_clk(REFDATA *record, double error, double drift, double error_var, double drift_var)
{
    if (!valid()) return;
    Store(header_->clk_error, error);
    Store(header_->clk_drift, drift);
    Store(header_->clk_error_var, error_var);
    Store(header_->clk_drift_var, drift_var);
    if (!record) return;
    record->clk_error = error;
    record->clk_drift = drift;
    record->clk_error_var = error_var;
    record->clk_drift_var = drift_var;
    record->flags |= REFDATA::Has_Clk;
}

void Ring::reset_clk()
{
    if (!valid()) return;
    set_clk(nullptr, 0, 0, 0, 0);
    Store(header_->clk_resets, header_->clk_resets + 1);
}

void Ring::jump_clk(double jump)
{
    if (!valid()) return;
    Store(header_->clk_error, header_->clk_error + jump);
    Store(header_->clk_resets, header_->clk_resets + 1);
}

// --- Meteorological data

double Ring::get_temp(const REFDATA *record) { return record ? double{record->temp} : 0; }

double Ring::get_press(const REFDATA *record) { return record ? double{record->press} : 0; }

double Ring::get_hum(const REFDATA *record) { return record ? double{record->hum} : 0; }

#define KERNEL_MET(name, flag)                                                                                         \
    void Ring::set_##name(REFDATA *record, double value)                                                               \
    {                                                                                                                  \
        if (!record || !valid()) return;                                                                               \
        record->name = static_cast<float>(value);                                                                      \
        record->flags |= REFDATA::flag;                                                                                \
        Store(header_->last_##name, value);                                                                            \
    }
KERNEL_MET(temp, Has_Temp)
KERNEL_MET(press, Has_Press)
KERNEL_MET(hum, Has_Hum)

void Ring::set_mean_met_data(double temp, double press, double hum)
{
    if (!valid()) return;
    if (header_->met_count + 1 != 0) Store(header_->met_count, header_->met_count + 1);
    Add_To_Mean(header_->mean_temp, temp, header_->met_count);
    Add_To_Mean(header_->mean_press, press, header_->met_count);
    Add_To_Mean(header_->mean_hum, hum, header_->met_count);
}

void Ring::set_mean_met_data_no_count(double temp, double press, double hum)
{
    if (!valid()) return;
    Store(header_->mean_temp, temp);
    Store(header_->mean_press, press);
    Store(header_->mean_hum, hum);
}

void Ring::reset_met_data()
{
    if (!valid()) return;
    for (double *const value : {&header_->mean_temp, &header_->mean_press, &header_->mean_hum, &header_->last_temp,
                                &header_->last_press, &header_->last_hum})
        Store(*value, 0.0);
    Store(header_->met_count, 0u);
}

unsigned long Ring::get_mean_met_data(double &temp, double &press, double &hum) const
{
    temp = get_mean_temp();
    press = get_mean_press();
    hum = get_mean_hum();
    return valid() ? Load(header_->met_count) : 0;
}

}  // namespace kernel
