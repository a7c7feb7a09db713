// Linked on Windows only: there the standard streams would turn line ends around and stop at a Ctrl-Z.

extern "C" int _setmode(int descriptor, int mode);

namespace {

constexpr int binary = 0x8000;

[[maybe_unused]] const bool set = _setmode(0, binary) != -1 && _setmode(1, binary) != -1;

}  // namespace
