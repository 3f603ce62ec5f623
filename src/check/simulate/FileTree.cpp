#include "check/simulate/FileTree.h"

#include "check/update/LongPath.h"
#include "common/KzComn_NamePattern.h"
#include "common/KzComn_Result.h"

#include <algorithm>

using namespace KzCommon;
using Entry = Storage::Directory::Entry;

namespace Check {

namespace {

/// The question about a folder's entries at which the whole folder is listed: one listing costs as much as a few
/// questions, above all about entries that do not exist.
constexpr std::size_t kListFrom = 8;

/// A path in a form that the base machine always accepts.
std::wstring ToAsk(const std::wstring& tstrReal)
{
    return Storage::Directory::RootLength(tstrReal) == tstrReal.size() ? tstrReal + L'\\' : LongPath(tstrReal);
}

std::wstring Below(const std::wstring& tstrFolder, std::wstring_view tstrName)
{
    return tstrFolder.empty() ? std::wstring() : String::JoinPath(tstrFolder, tstrName);
}

}  // namespace

FileTree::Step FileTree::Walk(const FullPath& path) const
{
    const auto itRoot = m_roots.find(path.Root());
    Step step;
    if (m_pBase) step.tstrReal = path.Root();
    if (itRoot != m_roots.end()) step.pNode = &itRoot->second;
    if (!m_pBase && !step.pNode) return {.pNode = nullptr, .tstrReal = {}, .dwError = ERROR_PATH_NOT_FOUND};

    const std::vector<std::wstring_view> names = path.Names();
    for (auto itName = names.begin(); itName != names.end(); ++itName) {
        const bool bLast = itName + 1 == names.end();
        const DWORD dwMissing = bLast ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
        const Node* pChild = nullptr;
        if (step.pNode) {
            if (step.pNode->bAlone) step.tstrReal.clear();
            const auto itChild = step.pNode->children.find(*itName);
            if (itChild != step.pNode->children.end()) pChild = itChild->second.get();
        }
        if (!pChild && step.tstrReal.empty()) return {.pNode = nullptr, .tstrReal = {}, .dwError = dwMissing};
        step.tstrReal = Below(step.tstrReal, *itName);
        step.pNode = pChild;
        if (!pChild) continue;
        if (!pChild->tstrReal.empty()) step.tstrReal = pChild->tstrReal;
        const bool bFileAbove = pChild->eKind == Node::Kind::eFile && !bLast;
        if (pChild->eKind == Node::Kind::eGone || bFileAbove) {
            return {.pNode = nullptr, .tstrReal = {}, .dwError = dwMissing};
        }
    }
    return step;
}

void FileTree::ListBase(const std::wstring& tstrFolder, BaseFolder& folder) const
{
    const auto add = [&](const Entry& entry) {
        folder.answers.try_emplace(entry.tstrName, entry.dwAttributes);
    };
    folder.bListed = m_pBase->ForEachEntry(String::EnsureBackslash(ToAsk(tstrFolder)), L"*", add, nullptr);
}

FileTree::BaseFolder::Answer FileTree::AnswerOf(const std::wstring& tstrReal) const
{
    const bool bRoot = Storage::Directory::RootLength(tstrReal) == tstrReal.size();
    const std::wstring tstrFolder = bRoot ? std::wstring() : String::FolderPart(tstrReal);
    const std::wstring tstrName = tstrReal.substr(tstrFolder.size());
    BaseFolder& folder = m_baseFolders[tstrFolder];
    if (++folder.cAsked == kListFrom && !bRoot) ListBase(tstrFolder, folder);
    const auto [itAnswer, bNew] = folder.answers.try_emplace(tstrName);
    auto& [dwAttributes, dwError] = itAnswer->second;
    if (!bNew) return itAnswer->second;
    // A listing has no short names.
    if (folder.bListed && tstrName.find(L'~') == std::wstring::npos) {
        dwError = ERROR_FILE_NOT_FOUND;
    } else if (!m_pBase->ReadAttributes(ToAsk(tstrReal), dwAttributes, &dwError)) {
        dwAttributes = 0;
    }
    return itAnswer->second;
}

Found FileTree::AskBase(const std::wstring& tstrReal) const
{
    const auto [dwAttributes, dwError] = AnswerOf(tstrReal);
    if (dwError != ERROR_SUCCESS) return {.eKind = Found::Kind::eNone, .dwError = dwError};
    const bool bFolder = (dwAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    return {.eKind = bFolder ? Found::Kind::eFolder : Found::Kind::eFile,
            .dwAttributes = dwAttributes,
            .tstrReal = tstrReal};
}

Found FileTree::DescribeFile(const std::shared_ptr<FileState>& pState) const
{
    Found found{.eKind = Found::Kind::eFile,
                .dwAttributes = pState->optAttributes.value_or(FILE_ATTRIBUTE_ARCHIVE),
                .tstrReal = pState->tstrReal,
                .pState = pState};
    if (!pState->optAttributes && !pState->tstrReal.empty())
        found.dwAttributes = AskBase(pState->tstrReal).dwAttributes;
    return found;
}

Found FileTree::Find(const FullPath& path) const
{
    const Step step = Walk(path);
    if (step.dwError != ERROR_SUCCESS) return {.eKind = Found::Kind::eNone, .dwError = step.dwError};
    if (step.pNode && step.pNode->eKind == Node::Kind::eFile) {
        if (path.IsFolderText()) return {.eKind = Found::Kind::eNone, .dwError = ERROR_INVALID_NAME};
        return DescribeFile(step.pNode->pState);
    }
    if (step.pNode && step.pNode->eKind == Node::Kind::eFolder) {
        const Found base = step.pNode->bAlone || step.tstrReal.empty() ? Found{} : AskBase(step.tstrReal);
        return {.eKind = Found::Kind::eFolder,
                .dwAttributes = base.IsFolder() ? base.dwAttributes : DWORD{FILE_ATTRIBUTE_DIRECTORY},
                .tstrReal = base.IsFolder() ? step.tstrReal : std::wstring()};
    }
    Found found = AskBase(step.tstrReal);
    if (found.IsFile() && path.IsFolderText()) return {.eKind = Found::Kind::eNone, .dwError = ERROR_INVALID_NAME};
    return found;
}

bool FileTree::MatchesInMemory(const Node& node, const std::wstring& tstrPattern, const std::wstring& tstrReal) const
{
    if (!Storage::File::MatchesPattern(node.tstrName, tstrPattern)) return false;
    const bool bAll = tstrPattern == L"*" || tstrPattern == L"*.*";
    return bAll || tstrReal.empty() || AskBase(Below(tstrReal, node.tstrName)).eKind == Found::Kind::eNone;
}

bool FileTree::List(const FullPath& folder, const std::wstring& tstrPattern,
                    const std::function<void(const Entry&)>& visit, DWORD* pdwError) const
{
    const Found found = Find(folder);
    if (found.IsFile()) return Storage::Fail(ERROR_DIRECTORY, pdwError);
    if (!found.IsFolder()) {
        return Storage::Fail(found.dwError == ERROR_FILE_NOT_FOUND ? DWORD{ERROR_PATH_NOT_FOUND} : found.dwError,
                             pdwError);
    }
    const Step step = Walk(folder);
    const std::wstring tstrReal = found.tstrReal.empty() ? std::wstring() : ToAsk(found.tstrReal);
    if (!step.pNode || (step.pNode->children.empty() && !tstrReal.empty())) {
        return m_pBase->ForEachEntry(String::EnsureBackslash(tstrReal), tstrPattern, visit, pdwError);
    }
    String::NoCaseMap<Entry> entries;  // the matching ones
    const auto add = [&](const Entry& entry) {
        entries.insert_or_assign(entry.tstrName, entry);
    };
    const bool bBase = !tstrReal.empty() && !step.pNode->bAlone;
    if (bBase) {
        DWORD dwError = ERROR_SUCCESS;
        if (!m_pBase->ForEachEntry(String::EnsureBackslash(tstrReal), tstrPattern, add, &dwError) &&
            dwError != ERROR_FILE_NOT_FOUND) {
            return Storage::Fail(dwError, pdwError);
        }
    }
    for (const auto& [tstrName, pChild] : step.pNode->children) {
        if (pChild->eKind == Node::Kind::eThrough) continue;
        const bool bListed = entries.erase(tstrName) != 0;
        if (pChild->eKind == Node::Kind::eGone) continue;
        if (!bListed && !MatchesInMemory(*pChild, tstrPattern, bBase ? found.tstrReal : std::wstring())) continue;
        const bool bLink = !pChild->tstrReal.empty() && m_pBase && m_pBase->IsLink(ToAsk(pChild->tstrReal));
        const bool bFolder = pChild->eKind == Node::Kind::eFolder;
        const DWORD dwAttributes =
            bFolder ? DWORD{FILE_ATTRIBUTE_DIRECTORY} : DescribeFile(pChild->pState).dwAttributes;
        add({pChild->tstrName, bFolder, bLink, dwAttributes});
    }
    // A root has no "." and "..".
    bool bAny = !folder.Names().empty() &&
                (Storage::File::MatchesPattern(L".", tstrPattern) || Storage::File::MatchesPattern(L"..", tstrPattern));
    for (const auto& [tstrName, entry] : entries) {
        bAny = true;
        visit(entry);
    }
    return bAny || Storage::Fail(ERROR_FILE_NOT_FOUND, pdwError);
}

bool FileTree::IsEmpty(const FullPath& folder) const
{
    bool bEmpty = true;
    static_cast<void>(List(
        folder, L"*", [&](const Entry&) { bEmpty = false; }, nullptr));
    return bEmpty;
}

bool FileTree::IsLink(const FullPath& path) const
{
    if (!m_pBase) return false;
    const Step step = Walk(path);
    if (step.dwError != ERROR_SUCCESS || step.tstrReal.empty()) return false;
    const bool bOwn = step.pNode && step.pNode->eKind != Node::Kind::eThrough && step.pNode->tstrReal.empty();
    return !bOwn && m_pBase->IsLink(ToAsk(step.tstrReal));
}

bool FileTree::LeadsThroughLink(const FullPath& folder) const
{
    if (!m_pBase) return false;
    // A part of the path that the base machine does not know cannot be a link.
    FullPath known = folder;
    for (;;) {
        const Step step = Walk(known);
        const bool bSame = String::EqualsNoCase(step.tstrReal, known.Text());
        if (!step.tstrReal.empty() && !bSame && IsLink(known)) return true;
        const bool bAlone = step.pNode && step.pNode->eKind == Node::Kind::eFolder && step.pNode->bAlone;
        if (step.dwError == ERROR_SUCCESS && bSame && !bAlone) return m_pBase->LeadsThroughLink(ToAsk(known.Text()));
        if (known.Name().empty()) return false;
        known = known.Parent();
    }
}

FileTree::Node& FileTree::Make(const FullPath& path)
{
    Node* pNode = &m_roots[std::wstring(path.Root())];
    if (!m_pBase) {
        pNode->eKind = Node::Kind::eFolder;
        pNode->bAlone = true;
    }
    for (const std::wstring_view tstrName : path.Names()) {
        // If the base machine lacks the folder, the spelling in memory counts.
        if (pNode->eKind == Node::Kind::eGone || pNode->eKind == Node::Kind::eFile) {
            pNode->eKind = Node::Kind::eFolder;
            pNode->bAlone = true;
        }
        std::unique_ptr<Node>& pChild = pNode->children[std::wstring(tstrName)];
        if (!pChild) {
            pChild = std::make_unique<Node>();
            pChild->tstrName = tstrName;
            if (pNode->bAlone) {
                pChild->eKind = Node::Kind::eFolder;
                pChild->bAlone = true;
            }
        }
        pNode = pChild.get();
    }
    return *pNode;
}

void FileTree::PutFile(const FullPath& path, std::shared_ptr<FileState> pState)
{
    if (!Find(path.Parent()).IsFolder()) PutFolder(path.Parent());
    Node& node = Make(path);
    node.eKind = Node::Kind::eFile;
    node.bAlone = false;
    node.tstrName = path.Name();
    node.tstrReal.clear();
    node.pState = std::move(pState);
    node.children.clear();
}

void FileTree::PutFolder(const FullPath& path, std::wstring tstrReal)
{
    if (path.Name().empty()) {
        static_cast<void>(Make(path));
        return;
    }
    if (Find(path).IsFolder()) return;
    PutFolder(path.Parent());
    Node& node = Make(path);
    node.eKind = Node::Kind::eFolder;
    node.bAlone = tstrReal.empty();
    node.tstrName = path.Name();
    node.tstrReal = std::move(tstrReal);
    node.pState.reset();
    node.children.clear();
}

void FileTree::Remove(const FullPath& path)
{
    Node& node = Make(path);
    node.eKind = Node::Kind::eGone;
    node.bAlone = false;
    node.tstrReal.clear();
    node.pState.reset();
    node.children.clear();
}

std::shared_ptr<FileState> FileTree::Own(const FullPath& path)
{
    const Found found = Find(path);
    if (found.pState) return found.pState;
    auto pState = std::make_shared<FileState>();
    pState->tstrReal = found.tstrReal;
    PutFile(path, pState);
    return pState;
}

}  // namespace Check
