#include "kernel/records/EPO_DATA.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <type_traits>
#include <utility>

namespace kernel {

namespace {

constexpr unsigned char not_known = 255;  // a byte without a value

// A caller may cast any int to the enumeration; check it before it indexes an array.
bool Is_Type(EpoDataTypes type) { return type >= 0 && type < EPO_END; }
bool Is_Type(ObsDataTypes type) { return type >= 0 && type < OBS_END; }

template <class Type>
int Are_Present(const std::uint8_t *index, std::uint8_t not_present, std::initializer_list<Type> types, Type end)
{
    for (const Type type : types) {
        if (type == end) break;
        if (!Is_Type(type) || index[type] == not_present) return 0;
    }
    return 1;
}

// Arrays fill their places from the front, so that `used` says which places hold one.
template <class Arrays>
void Free_From(Arrays &arrays, std::uint8_t first)
{
    for (int i = first; i < arrays.used; ++i) std::free(std::exchange(arrays.item[i], nullptr));
    arrays.used = std::min(arrays.used, first);
}

template <class Arrays>
void Copy_Arrays(Arrays &to, const Arrays &from, std::size_t entries)
{
    for (int i = 0; i < from.used; ++i) std::copy_n(from.item[i], entries, to.item[i]);
    // No index refers to the remaining arrays; free them, because a later store may need their places.
    Free_From(to, from.used);
}

// Entries sat + 1 to end - 1 of every array move one down.
template <class Arrays>
void Close_Gap(Arrays &arrays, std::size_t sat, std::size_t end)
{
    for (int i = 0; i < arrays.used; ++i)
        std::copy(arrays.item[i] + sat + 1, arrays.item[i] + end, arrays.item[i] + sat);
}

}  // namespace

EPO_DATA::EPO_DATA(int capacity) : capacity_(static_cast<std::uint8_t>(capacity & 0xFF))
{
    std::fill(std::begin(epo_index_), std::end(epo_index_), not_present);
    std::fill(std::begin(obs_index_), std::end(obs_index_), not_present);
}

// A failed copy is not reported: the new epoch is then valid and empty.
EPO_DATA::EPO_DATA(const EPO_DATA &other) : EPO_DATA(other.capacity_) { copy(&other); }

EPO_DATA &EPO_DATA::operator=(const EPO_DATA &other)
{
    copy(&other);
    return *this;
}

EPO_DATA::~EPO_DATA()
{
    Free_From(doubles_, 0);
    Free_From(floats_, 0);
    Free_From(bytes_, 0);
}

template <class T, int first, int limit>
int EPO_DATA::Places<T, first, limit>::Add(std::uint8_t &place, T value)
{
    // The index counts places over all kinds, so that it also tells the kind. The return value counts within this kind.
    place = static_cast<std::uint8_t>(first + used);
    item[used] = value;
    return used++;
}

template <class T, int first, int limit>
int EPO_DATA::Store_Epo(Places<T, first, limit> &values, EpoDataTypes type, T value)
{
    if (!Is_Type(type)) return -1;
    std::uint8_t &place = epo_index_[type];
    if (values.Is_Free(place)) return values.Add(place, value);
    // Find returns -1 for a quantity that is stored in another kind.
    const int found = values.Find(place);
    if (found >= 0) values.item[found] = value;
    return found;
}

template <class T, int first, int limit>
T EPO_DATA::Read_Epo(const Places<T, first, limit> &values, EpoDataTypes type, T absent) const
{
    const int found = Is_Type(type) ? values.Find(epo_index_[type]) : -1;
    return found < 0 ? absent : values.item[found];
}

template <class T>
T *EPO_DATA::New_Array(int fill) const
{
    // Every byte becomes `fill`: all bytes 0 make 0.0, and a byte of `not_known` is a quantity not known.
    void *array = std::malloc(Entries() * sizeof(T));
    return static_cast<T *>(array ? std::memset(array, fill, Entries() * sizeof(T)) : nullptr);
}

template <class T, int first, int limit>
int EPO_DATA::Store_Obs(Places<T *, first, limit> &arrays, ObsDataTypes type, T value, unsigned char sat, int fill)
{
    // Make the array before checking `sat`: a quantity is present from its first store on, even if that store returns
    // -2.
    if (!Is_Type(type)) return -1;
    std::uint8_t &place = obs_index_[type];
    if (arrays.Is_Free(place)) {
        T *array = New_Array<T>(fill);
        if (!array) return -1;  // the place stays free
        arrays.Add(place, array);
    }
    const int found = arrays.Find(place);
    if (found < 0) return -1;
    if (sat > capacity_) return -2;
    arrays.item[found][sat] = value;
    return found;
}

template <class T, int first, int limit>
T EPO_DATA::Read_Obs(const Places<T *, first, limit> &arrays, ObsDataTypes type, unsigned char sat, T absent) const
{
    // An entry beyond the capacity reads as absent; it lies outside the array.
    const int found = Is_Type(type) && sat <= capacity_ ? arrays.Find(obs_index_[type]) : -1;
    return found < 0 ? absent : arrays.item[found][sat];
}

int EPO_DATA::StoreDoubleEpo(EpoDataTypes type, double value) { return Store_Epo(epo_doubles_, type, value); }

int EPO_DATA::StoreUint8Epo(EpoDataTypes type, unsigned char value) { return Store_Epo(epo_bytes_, type, value); }

int EPO_DATA::StoreDoubleObs(ObsDataTypes type, double value, unsigned char sat)
{
    return Store_Obs(doubles_, type, value, sat, 0);
}

int EPO_DATA::StoreFloatObs(ObsDataTypes type, float value, unsigned char sat)
{
    return Store_Obs(floats_, type, value, sat, 0);
}

int EPO_DATA::StoreUint8Obs(ObsDataTypes type, unsigned char value, unsigned char sat)
{
    return Store_Obs(bytes_, type, value, sat, not_known);
}

double EPO_DATA::ReadDoubleEpo(EpoDataTypes type) const { return Read_Epo(epo_doubles_, type, -1.0); }

unsigned char EPO_DATA::ReadUint8Epo(EpoDataTypes type) const { return Read_Epo(epo_bytes_, type, not_known); }

double EPO_DATA::ReadDoubleObs(ObsDataTypes type, unsigned char sat) const
{
    return Read_Obs(doubles_, type, sat, -1.0);
}

float EPO_DATA::ReadFloatObs(ObsDataTypes type, unsigned char sat) const { return Read_Obs(floats_, type, sat, -1.0F); }

unsigned char EPO_DATA::ReadUint8Obs(ObsDataTypes type, unsigned char sat) const
{
    return Read_Obs(bytes_, type, sat, not_known);
}

int EPO_DATA::StoreGPSTime(const Gps_Time &time)
{
    // All three are stored, even if one of them fails.
    const int seconds = StoreDoubleEpo(EPO_SECONDS, time.sec);
    const int low = StoreUint8Epo(EPO_WEEK_LOW, static_cast<unsigned char>(time.week & 0xFF));
    const int high = StoreUint8Epo(EPO_WEEK_HIGH, static_cast<unsigned char>(time.week >> 8));
    return seconds < 0 || low < 0 || high < 0 ? -1 : 1;
}

Gps_Time EPO_DATA::ReadGPSTime() const
{
    const int week = ReadUint8Epo(EPO_WEEK_LOW) | ReadUint8Epo(EPO_WEEK_HIGH) << 8;
    return Gps_Time(static_cast<unsigned short>(week), ReadDoubleEpo(EPO_SECONDS));
}

int EPO_DATA::All_Present(std::initializer_list<EpoDataTypes> types) const
{
    return Are_Present(epo_index_, not_present, types, EPO_END);
}

int EPO_DATA::All_Present(std::initializer_list<ObsDataTypes> types) const
{
    return Are_Present(obs_index_, not_present, types, OBS_END);
}

void EPO_DATA::RemoveEpoIndex(unsigned char sat)
{
    // Only a count that is stored as a byte can be decreased.
    const int count_at = epo_bytes_.Find(epo_index_[EPO_SATELLITES]);
    if (count_at < 0 || sat >= epo_bytes_.item[count_at]) return;
    // The producer's count may exceed the number of entries.
    const std::size_t end = std::min<std::size_t>(epo_bytes_.item[count_at]--, Entries());
    // For the last entry, or one beyond the arrays, decreasing the count is enough.
    if (sat + std::size_t{1} >= end) return;
    Close_Gap(doubles_, sat, end);
    Close_Gap(floats_, sat, end);
    Close_Gap(bytes_, sat, end);
}

bool EPO_DATA::Can_Hold(const EPO_DATA &source) const
{
    // Comparing the numbers is enough: arrays of one kind are alike, and the index is copied.
    return capacity_ == source.capacity_ && doubles_.used >= source.doubles_.used &&
           floats_.used >= source.floats_.used && bytes_.used >= source.bytes_.used;
}

bool EPO_DATA::Allocate_As(const EPO_DATA &source)
{
    // `used` grows with each array, so that the destructor frees them after a failure.
    const auto allocate = [this](auto &arrays, int wanted) {
        while (arrays.used < wanted) {
            auto *&array = arrays.item[arrays.used];
            // The fill value does not matter: copy overwrites the whole array.
            array = New_Array<std::remove_reference_t<decltype(*array)>>(0);
            if (!array) return false;
            ++arrays.used;
        }
        return true;
    };
    return allocate(doubles_, source.doubles_.used) && allocate(floats_, source.floats_.used) &&
           allocate(bytes_, source.bytes_.used);
}

// For copy() only: does not swap the index and the epoch-wide values, because copy() sets them next.
void EPO_DATA::Swap(EPO_DATA &other)
{
    std::swap(capacity_, other.capacity_);
    std::swap(doubles_, other.doubles_);
    std::swap(floats_, other.floats_);
    std::swap(bytes_, other.bytes_);
}

int EPO_DATA::copy(const EPO_DATA *source)
{
    if (!source) return -1;
    if (source == this) return 1;
    if (!Can_Hold(*source)) {  // allocate in a new epoch first: without memory, this one stays as it is
        EPO_DATA fresh(source->capacity_);
        if (!fresh.Allocate_As(*source)) return -1;
        // `fresh` now owns the old arrays and frees them.
        Swap(fresh);
    }
    std::copy(std::begin(source->epo_index_), std::end(source->epo_index_), epo_index_);
    std::copy(std::begin(source->obs_index_), std::end(source->obs_index_), obs_index_);
    epo_doubles_ = source->epo_doubles_;
    epo_bytes_ = source->epo_bytes_;
    Copy_Arrays(doubles_, source->doubles_, Entries());
    Copy_Arrays(floats_, source->floats_, Entries());
    Copy_Arrays(bytes_, source->bytes_, Entries());
    return 1;
}

}  // namespace kernel
