// The command line: a verb, its options, its operands.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Check {

/// Exit codes; 3010 is Windows' own for "done, but a restart is pending".
enum ExitCode : int { kClean = 0, kFound = 1, kWrongUse = 2, kCannotRead = 3, kRestartPending = 3010 };

enum class Format { eText, eSarif, eJson, eCsv };

/// The arguments of a verb.
struct Arguments {
    std::vector<std::wstring> operands;        ///< unchanged
    std::optional<std::wstring> optInstalled;  ///< --installed DIR
    std::vector<std::wstring> languages;       ///< --language TAG, any number of times, or --languages TAG,...
    std::optional<std::wstring> optProduct;    ///< --product NAME
    std::optional<std::wstring> optVersion;    ///< --version V
    std::optional<std::wstring> optRecord;     ///< --record FILE
    std::optional<std::wstring> optPending;    ///< --pending arrived|missing
    std::optional<std::wstring> optMachines;   ///< --machines FILE
    std::optional<std::wstring> optWith;       ///< --with COMMAND
    std::vector<std::wstring> keys;            ///< --key FILE, any number of times
    bool bOlder = false;                       ///< --older
    std::optional<std::wstring> optOutput;     ///< --output DIR
    Format eFormat = Format::eText;            ///< --format
    bool bStrict = false;                      ///< --strict
    bool bAll = false;                         ///< --all
    bool bTrace = false;                       ///< --trace
    bool bInto = false;                        ///< --into
    bool bDetect = false;                      ///< --detect
    bool bEventLog = false;                    ///< --event-log
};

/// The output of a verb; the entry point prints it after the verb returns.
struct Output {
    std::string strText;      ///< UTF-8, for standard output
    std::wstring tstrErrors;  ///< one line each, for standard error
};

/// All options; a verb accepts a combination of them.
enum OptionBits : unsigned {
    kInstalled = 1,
    kLanguage = 2,
    kStrict = 4,
    kFormatSarif = 8,
    kFormatJson = 16,
    kAll = 32,
    kTrace = 64,
    kInto = 128,
    kNewNames = 256,   ///< --product, --version and --languages
    kFleet = 512,      ///< --record, --detect, --pending and --event-log
    kMachines = 1024,  ///< --machines, and --format csv
    kWith = 2048,
    kKey = 4096,
    kOlder = 8192,
    kOutput = 16384,
};

/// One verb: a row in the table of the entry point.
struct Verb {
    const wchar_t* szName;
    const wchar_t* szUsage;  ///< the text after the verb
    const wchar_t* szHelp;   ///< its purpose and its exit codes
    unsigned uOptions;
    std::size_t cLeastOperands;
    std::size_t cMostOperands;
    int (*pfnRun)(const Arguments& arguments, Output& output);
};

/// Parses the arguments after the verb. False with the error in `tstrError`.
[[nodiscard]] bool ParseArguments(const Verb& verb, std::span<const wchar_t* const> words, Arguments& arguments,
                                  std::wstring& tstrError);

/// Runs a whole command line, without the program's name: a verb of the table, its help, --help or --version.
[[nodiscard]] int RunCommandLine(std::span<const Verb> verbs, std::span<const wchar_t* const> words, Output& output);

}  // namespace Check
