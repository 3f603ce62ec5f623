// Whole texts of tests in files of the documentation, compared to the last character.
#pragma once

#include <string>

/// The part "== NAME" of a file; its path is below the folder of the sources, in which the tests start.
[[nodiscard]] std::string ToldIn(const std::string& strFile, const std::string& strName);

/// Compares a text with the part "== NAME" of a file (a path below the folder of the sources, in which the tests
/// start), and shows only the first line that differs: the texts are long. BREVANT_WRITE_FINDINGS=1 writes the text
/// there.
void ExpectToldIn(const std::string& strFile, const std::string& strName, const std::string& strTold);
