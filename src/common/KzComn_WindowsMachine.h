// The real machine.
#pragma once

#include "common/KzComn_Machine.h"
#include "common/KzComn_String.h"

namespace KzCommon {

/// Carries out every request with the functions of `common`, which retry, keep rights and lock folders.
class WindowsMachine : public Machine {
public:
    [[nodiscard]] bool ReadValue(const RegistryPlace& place, RegistryData& data, DWORD* pdwError) const override;
    [[nodiscard]] bool ReadStored(const RegistryPlace& place, StoredValue& value, DWORD* pdwError) const override;
    [[nodiscard]] bool HasKey(const RegistryPlace& place) const override;
    [[nodiscard]] bool StoreValue(const RegistryPlace& place, const RegistryData& data, DWORD* pdwError) override;
    [[nodiscard]] bool DeleteValue(const RegistryPlace& place, DWORD* pdwError) override;

    [[nodiscard]] bool ReadAttributes(const std::wstring& tstrPath, DWORD& dwAttributes,
                                      DWORD* pdwError) const override;
    [[nodiscard]] bool IsLink(const std::wstring& tstrPath) const override;
    [[nodiscard]] bool ForEachEntry(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                    const std::function<void(const Storage::Directory::Entry&)>& visit,
                                    DWORD* pdwError) const override;
    [[nodiscard]] bool IsSameFile(const std::wstring& tstrPath, const std::wstring& tstrOther) const override;
    [[nodiscard]] Volume VolumeOf(const std::wstring& tstrFolder) const override;
    [[nodiscard]] bool ReadContent(const std::wstring& tstrPath, std::size_t cbMost, std::string& strBytes,
                                   DWORD* pdwError) const override;
    [[nodiscard]] bool LeadsThroughLink(const std::wstring& tstrFolder) const override;

    [[nodiscard]] bool CreateFolder(const std::wstring& tstrPath, DWORD* pdwError) override;
    [[nodiscard]] bool CopyNow(const std::wstring& tstrDestination, const std::wstring& tstrSource, CopyMode eMode,
                               DWORD* pdwError) override;
    [[nodiscard]] bool BackUp(const std::wstring& tstrCopy, const std::wstring& tstrSource, DWORD* pdwError) override;
    [[nodiscard]] bool LinkTo(const std::wstring& tstrName, const std::wstring& tstrFile, DWORD* pdwError) override;
    [[nodiscard]] bool MoveNow(const std::wstring& tstrSource, const std::wstring& tstrDestination,
                               DWORD* pdwError) override;
    [[nodiscard]] bool DeleteNow(const std::wstring& tstrPath, DWORD* pdwError) override;
    [[nodiscard]] bool DeleteMatchingNow(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                         DWORD* pdwError, const Storage::Directory::Spared& isSpared) override;
    [[nodiscard]] bool MakeWritable(const std::wstring& tstrPath, DWORD* pdwError) override;
    [[nodiscard]] bool ReplaceContent(const std::wstring& tstrPath, std::string_view strBytes,
                                      DWORD* pdwError) override;

    [[nodiscard]] bool MoveAtRestart(const std::wstring& tstrSource, const std::wstring& tstrDestination,
                                     DWORD* pdwError) override;
    [[nodiscard]] bool DeleteMatchingAtRestart(const std::wstring& tstrFolder, const std::wstring& tstrPattern,
                                               DWORD* pdwError, const Storage::Directory::Spared& isSpared) override;
    [[nodiscard]] bool DeleteTreeAtRestart(const std::wstring& tstrFolder, DWORD* pdwError,
                                           const Storage::Directory::Spared& isSpared) override;

    [[nodiscard]] Storage::Ini::Section ReadIniSection(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                                       const Storage::Ini::SectionGrowth& growth) const override;
    [[nodiscard]] bool ReadIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                    const std::wstring& tstrKey, const std::wstring& tstrDefault,
                                    std::wstring& tstrValue, DWORD* pdwError) const override;
    [[nodiscard]] bool StoreIniValue(const std::wstring& tstrPath, const std::wstring& tstrSection,
                                     const std::wstring& tstrKey, const std::wstring& tstrValue,
                                     Storage::Patience& patience, DWORD* pdwError) override;

    [[nodiscard]] std::wstring FolderOf(KnownFolder eFolder) const override;
    [[nodiscard]] bool EnumUserProfileFolders(std::vector<std::wstring>& folders, DWORD* pdwError) const override;
    [[nodiscard]] bool IsTouchpadDriverTooOld() const override;
    [[nodiscard]] DWORD TickCount() const override;
    [[nodiscard]] bool AskAtConsole(std::wstring tstrTitle, std::wstring tstrMessage, DWORD dwStyle, bool& bAgreed,
                                    DWORD* pdwError) override;

private:
    [[nodiscard]] bool MayBeReadOnly(const std::wstring& tstrPath);

    std::wstring m_tstrListed;     // the folder with these
    String::NoCaseSet m_readOnly;  // files, with full paths
    bool m_bListed = false;
};

}  // namespace KzCommon
