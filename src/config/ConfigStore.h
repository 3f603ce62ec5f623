// One configuration file: its settings are read and replaced one by one.
#pragma once

#include "common/KzComn_Machine.h"
#include "common/KzComn_XmlElement.h"
#include "config/ConfigProtection.h"
#include "config/ConfigValue.h"

#include <memory>
#include <string>

namespace Config {

/// What the attributes of an element say about the protection of its text.
enum class Protection {
    eNone,
    eMisspelt,  ///< meant to be protected, but its text is taken to be in clear: Protected="1", protected="true"
    eProtected  ///< protected="1", exactly so
};
/// What those of `element` say.
[[nodiscard]] Protection ProtectionOf(const KzCommon::Storage::XmlElement& element);

/// What an element without child elements holds. White space around it counts only in a clear text.
[[nodiscard]] Value ValueOf(const KzCommon::Storage::XmlElement& element);

/// A setting is an element without child elements; its attribute "type" says what its text is (see Type), and with
/// protected="1" the text is kept encrypted. Failures are traced, the values never.
class ConfigStore {
public:
    ConfigStore(KzCommon::Machine& machine, const ValueProtection& protection) noexcept
        : m_machine(machine), m_protection(protection)
    {
    }

    /// Reads the file.
    [[nodiscard]] bool Open(const std::wstring& tstrPath);

    enum class Found { eValue, eNone, eRefused };

    /// Reads one setting and its type. eNone when the file does not hold it; eRefused when what it holds does not fit
    /// its type or fails its authentication, so that neither garbage nor a protected value left in clear gets out. An
    /// `int` or `bool` without a text holds none. A secret (IsSecret) that stands in clear comes out protected.
    [[nodiscard]] Found Read(const TagPath& path, Value& value, Type& eType) const;

    /// Writes one setting. A missing element is created, as one of type `eNewType`, protected when the value is. A
    /// protected value goes into a protected element as it is (in today's form) and into another one in clear; a clear
    /// value is protected where the element is. A secret makes its element a protected one, and so does a protected
    /// value one that is meant to be. What holds the value already stays. False, with the setting left as it was, when
    /// the value does not fit the element's type, fails its authentication or cannot stand in XML, and when the path is
    /// that of a section or leads through a value.
    [[nodiscard]] bool Write(const TagPath& path, const Value& value, Type eNewType);

    /// Replaces the file when a setting has changed since Open.
    [[nodiscard]] bool Save();

private:
    [[nodiscard]] bool Store(KzCommon::Storage::XmlElement& element, const TagPath& path, const Value& value,
                             const std::wstring& tstrClear);
    [[nodiscard]] bool SealedText(const KzCommon::Storage::XmlElement& element, const TagPath& path, const Value& value,
                                  const std::wstring& tstrClear, std::wstring& tstrText) const;
    [[nodiscard]] bool Seal(const TagPath& path, const std::wstring& tstrClear, std::wstring& tstrText) const;
    [[nodiscard]] KzCommon::Storage::XmlElement* Create(const TagPath& path, Type eType, bool bProtected);
    [[nodiscard]] bool Clear(const TagPath& path, const Value& value, Secret<std::wstring>& clear) const;

    KzCommon::Machine& m_machine;
    const ValueProtection& m_protection;
    std::unique_ptr<KzCommon::Storage::XmlDocument> m_document;
    std::wstring m_tstrPath;
    bool m_bChanged = false;
};

}  // namespace Config
