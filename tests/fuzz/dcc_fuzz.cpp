// libFuzzer target of the DCC file readers: the first byte chooses the binary DCC file
// (read_dcc_data_reg_byfile) or a DCC text file (read_dcc_data_from_file, its name from the
// zoom multiple of the next byte), the next one what is at the file's path; the rest is the
// file. Besides the sanitizers' checks: binary values are 16-bit, a file of 96 bytes or more
// is success and a shorter one an error; a refused text file changes no value, and no
// value is written past the 48 knots.
#include <cstdint>
#include <cstring>

#include "tests/fuzz/fuzz_platform.hpp"
#include "zoomaf/imx586.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zoomaf::fuzz;
    FuzzPlatform& board = fuzz_platform();
    Input in(data, size);
    const bool binary = in.byte() % 2 == 0;
    const float multiple = 1.0f + static_cast<float>(in.byte() % 170) / 10.0f;
    const FuzzPlatform::FileKind kind = file_kind(in.byte());
    const std::string_view content = in.rest();

    // One guard value on each side of the 48 knots.
    int64_t values[IMX586_DCC_KNOTS + 2];
    for (int64_t& value : values) value = -77;
    int64_t* dcc = values + 1;
    if (binary) {
        board.set_file(IMX586_DCC_FILE, content, kind);
        const int result = read_dcc_data_reg_byfile(IMX586_DCC_FILE, dcc);
        for (int k = 0; k < IMX586_DCC_KNOTS; ++k) require(dcc[k] >= 0 && dcc[k] <= 0xFFFF);
        if (kind == FuzzPlatform::FileKind::regular) {
            require((result == 0) == (content.size() >= 2 * IMX586_DCC_KNOTS));
        }
    } else {
        char name[64];
        std::snprintf(name, sizeof name, "%0.1f_dcc_data", static_cast<double>(multiple));
        board.set_file(name, content, kind);
        const int result = read_dcc_data_from_file(dcc, multiple);
        require(result == 0 || result == -1);
        if (result != 0) {
            for (int k = 0; k < IMX586_DCC_KNOTS; ++k) require(dcc[k] == -77);
        }
    }
    require(values[0] == -77 && values[IMX586_DCC_KNOTS + 1] == -77);
    std::fflush(stdout);
    return 0;
}
