// Linked on Windows only, where the standard streams would otherwise change line ends and stop at a Ctrl-Z.

extern "C" int _setmode(int descriptor, int mode);

namespace {

constexpr int binary = 0x8000;
constexpr int standard_input = 0, standard_output = 1;

[[maybe_unused]] const bool set = _setmode(standard_input, binary) != -1 && _setmode(standard_output, binary) != -1;

}  // namespace
