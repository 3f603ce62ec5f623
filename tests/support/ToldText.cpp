#include "support/ToldText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <tuple>

namespace {

std::string LineAt(const std::string& strText, std::size_t uPlace)
{
    const std::size_t uLine = strText.substr(0, uPlace).rfind('\n') + 1;
    return strText.substr(uLine, strText.find('\n', uPlace) - uLine);
}

/// A whole file with that part, which may be empty; where the part begins, and its length.
std::tuple<std::string, std::size_t, std::size_t> Find(const std::string& strFile, const std::string& strName)
{
    std::stringstream all;
    all << std::ifstream(strFile, std::ios::binary).rdbuf();
    std::string strAll = all.str();
    const std::string strHead = "\n== " + strName + "\n";
    if (strAll.find(strHead) == std::string::npos) strAll += strHead;
    const std::size_t uBegin = strAll.find(strHead) + strHead.size();
    return {strAll, uBegin, std::min(strAll.find("\n== ", uBegin), strAll.size()) - uBegin};
}

}  // namespace

std::string ToldIn(const std::string& strFile, const std::string& strName)
{
    const auto& [strAll, uBegin, cch] = Find(strFile, strName);
    return strAll.substr(uBegin, cch);
}

void ExpectToldIn(const std::string& strFile, const std::string& strName, const std::string& strTold)
{
    const std::string strWritten = ToldIn(strFile, strName);
    if (std::getenv("BREVANT_WRITE_FINDINGS")) {
        auto [strAll, uBegin, cch] = Find(strFile, strName);
        if (strWritten != strTold) std::ofstream(strFile, std::ios::binary) << strAll.replace(uBegin, cch, strTold);
        return;
    }
    const auto uSame = static_cast<std::size_t>(std::ranges::mismatch(strWritten, strTold).in1 - strWritten.begin());
    EXPECT_TRUE(strWritten == strTold) << strFile << ", " << strName << " has " << LineAt(strWritten, uSame)
                                       << "\nand found is " << LineAt(strTold, uSame);
}
