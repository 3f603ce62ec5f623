#include "fuzz/Variants.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <thread>

namespace {

constexpr DWORD kMaxMilliseconds = 20'000;

/// "~" is a space in these words, "$" a line end.
const char kWordText[] =
    R"({ } ! = == \ .. ..\ . / \\?\ \\.\PhysicalDrive0 \\nobody\share\ Z:\ : :stream * ? NUL %s%n%p [ ]
    $[QOR_DIR]$add= $[QOR_FILE]$delete_now= REG_MULTI_SZ 4294967296 18446744073709551616 -1 < > </ /> <a> </a> " ' & &amp;
    &#0; &#xD800; &b; <![CDATA[ ]]> <!-- --> <!DOCTYPE~a[<!ENTITY~b"c">]> ~type="int" ~protected="1" UTF-16 KOI8-R ~ $)";

std::vector<std::string> Words()
{
    std::istringstream text(kWordText);
    std::vector<std::string> words(std::istream_iterator<std::string>(text), {});
    for (std::string& strWord : words) {
        std::replace(strWord.begin(), strWord.end(), '~', ' ');
        std::replace(strWord.begin(), strWord.end(), '$', '\n');
    }
    words.insert(words.end(), {"\r", "\t", "\xFF\xFE", "\xEF\xBB\xBF", "\xC3\xA4", "\xF0\x9F\x98\x80", "\xED\xA0\x80"});
    return words;
}

const std::vector<std::string> kWords = Words();
std::string s_strSeeds;
std::size_t s_cVariants = 10'000;
std::string s_strVariant;
unsigned s_uNumber = 0;
std::atomic<DWORD> s_dwStarted = 0;  // 0: no variant is running

struct Mutator {
    const std::vector<std::string>& seeds;
    std::mt19937 random;

    std::size_t Below(std::size_t uLimit) { return uLimit ? random() % uLimit : 0; }
    const std::string& Pick(const std::vector<std::string>& strings) { return strings[Below(strings.size())]; }

    /// A word or a piece of the text; sometimes repeated up to a length near a limit.
    std::string Insertion(const std::string& str)
    {
        static constexpr std::size_t kLengths[] = {50, 256, 260, 1023, 4094, 8192, 32767, 70000};
        const std::size_t cb = 1 + Below(Below(4) == 0 ? str.size() : 24);
        std::string strPiece = Below(2) == 0 ? Pick(kWords) : str.substr(Below(str.size()), cb);
        if (Below(5) != 0 || strPiece.empty()) return strPiece;
        const std::size_t cbRun = kLengths[Below(Below(8) == 0 ? std::size(kLengths) : 4)] + Below(3);
        while (strPiece.size() < cbRun) strPiece += strPiece.substr(0, cbRun - strPiece.size());
        return strPiece;
    }

    std::string Make()
    {
        std::string str = Pick(seeds);
        for (std::size_t cChanges = 1 + Below(1 + Below(6)); cChanges > 0; --cChanges) {
            std::string strNew = Insertion(Below(2) == 0 ? str : Pick(seeds));
            std::size_t uAt = Below(str.size() + 1);
            std::size_t cb = 0;
            switch (Below(8)) {
                case 0: str.insert(uAt, 1, static_cast<char>(Below(256))); break;
                case 1: str.replace(uAt, 1, 1, static_cast<char>(str[uAt] ^ (1 << Below(8)))); break;
                case 2: str.erase(uAt, 1 + Below(40)); break;
                case 3: cb = Below(24); [[fallthrough]];
                case 4: str.replace(uAt, cb, strNew); break;
                default:  // a whole field, so that XML usually stays well-formed
                    uAt = std::min(str.find_first_of(">=!\n", uAt), str.size() - 1) + 1;
                    if (uAt < str.size() && str[uAt] == '"') ++uAt;
                    if (Below(4) != 0)
                        std::erase_if(strNew, [](char ch) { return ch == '<' || ch == '&' || ch == '"'; });
                    str.replace(uAt, str.find_first_of("\"<!\r\n", uAt) - uAt, strNew);
            }
        }
        if (Below(8) != 0) return str;
        std::string strWide = "\xFF\xFE";
        for (const char ch : str) strWide.append({ch, static_cast<char>(Below(200) == 0 ? Below(256) : 0)});
        return strWide;
    }
};

/// Does not use system functions, which may be watched.
void ReportVariant(const char* szWhat)
{
    std::printf("%s at variant %u, left in fuzz-input.bin\n", szWhat, s_uNumber);
    std::fflush(stdout);
    std::FILE* const pFile = std::fopen("fuzz-input.bin", "wb");
    if (pFile) std::fwrite(s_strVariant.data(), 1, s_strVariant.size(), pFile);
    if (pFile) std::fclose(pFile);
}

LONG WINAPI OnCrash(EXCEPTION_POINTERS* p)
{
    std::printf("0x%08lx at %p\n", p->ExceptionRecord->ExceptionCode, p->ExceptionRecord->ExceptionAddress);
    ReportVariant("crash");
    return EXCEPTION_CONTINUE_SEARCH;
}

void Watch()
{
    for (;; ::Sleep(500)) {
        const DWORD dwStarted = s_dwStarted;
        if (dwStarted == 0 || ::GetTickCount() - dwStarted < kMaxMilliseconds) continue;
        ReportVariant("no end");
        ::TerminateProcess(::GetCurrentProcess(), 1);
    }
}

bool AreHeapsSound()
{
    HANDLE heaps[64] = {};
    const DWORD cHeaps = ::GetProcessHeaps(64, heaps);
    return std::all_of(heaps, heaps + cHeaps, [](HANDLE hHeap) { return ::HeapValidate(hHeap, 0, nullptr) != FALSE; });
}

}  // namespace

std::string Seed(const std::string& strName)
{
    std::ifstream file(s_strSeeds + "/" + strName, std::ios::binary);
    EXPECT_TRUE(file) << strName;
    return {std::istreambuf_iterator<char>(file), {}};
}

void PutVariant(const std::filesystem::path& path, const std::string& strVariant)
{
    static auto s_time = std::filesystem::file_time_type::clock::now() - std::chrono::hours(24 * 365);
    std::ofstream file(path, std::ios::binary);
    if (!file) {
        std::filesystem::create_directories(path.parent_path());
        file.open(path, std::ios::binary);
    }
    file << strVariant;
    file.close();
    std::filesystem::last_write_time(path, s_time += std::chrono::seconds(1));
}

void RunVariants(const std::vector<std::string>& seeds,
                 const std::function<void(const std::string& strVariant)>& attempt, std::size_t uShare)
{
    const std::size_t cRuns = seeds.size() + s_cVariants / uShare;
    for (s_uNumber = 0; s_uNumber < cRuns && !::testing::Test::HasFailure(); ++s_uNumber) {
        const bool bSeed = s_uNumber < seeds.size();
        s_strVariant = bSeed ? seeds[s_uNumber] : Mutator{seeds, std::mt19937(s_uNumber)}.Make();
        s_dwStarted = std::max<DWORD>(::GetTickCount(), 1);
        EXPECT_NO_THROW(attempt(s_strVariant));
        EXPECT_TRUE(s_uNumber % 200 != 0 || AreHeapsSound());
    }
    s_dwStarted = 0;
    if (::testing::Test::HasFailure()) ReportVariant("failure");
}

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    if (argc < 2) return 2;
    s_strSeeds = argv[1];
    if (argc > 2) s_cVariants = std::stoul(argv[2]);
    ::SetUnhandledExceptionFilter(&OnCrash);
    std::signal(SIGABRT, [](int) { ReportVariant("abort"); });
    std::thread(&Watch).detach();
    return RUN_ALL_TESTS();
}
