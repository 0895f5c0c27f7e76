#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstdint>

/// What the fuzz targets share. Each target is one libFuzzer program; what it promises is checked with
/// require(), and the sanitizers check the rest.
namespace fuzz
{

/// Ends the program, and with it the run, when the promise does not hold.
void require(bool promise, const char* what);

/// The input as a byte array of its own, so that a read beyond its end is found.
QByteArray bytes(const std::uint8_t* data, std::size_t size);

} // namespace fuzz

/// Given by each target.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
