// What is done with an input, shared by the fuzz targets and the test that replays the corpus.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace fuzz {

// Loads a document and, if it loads, asks and writes every node (of a large document the first ones). Aborts when the
// engine breaks a promise that does not depend on the document.
void exercise_document(std::span<const std::byte> text);

// Compiles a formula and runs it with integer and with double variables.
void exercise_formula(std::string_view text);

} // namespace fuzz
