// One configuration file, with access to single settings.
#pragma once

#include "common/KzComn_Machine.h"
#include "common/KzComn_XmlElement.h"
#include "config/ConfigProtection.h"
#include "config/ConfigValue.h"

#include <memory>
#include <string>

namespace Config {

/// The protection of an element's text, by its attributes.
enum class Protection {
    eNone,
    eMisspelt,  ///< meant to be protected but read as clear text: Protected="1", protected="true"
    eProtected  ///< exactly protected="1"
};
/// The protection of `element`, by its attributes.
[[nodiscard]] Protection ProtectionOf(const KzCommon::Storage::XmlElement& element);

/// The value of an element without child elements. White space around it is significant only in clear text.
[[nodiscard]] Value ValueOf(const KzCommon::Storage::XmlElement& element);

/// A setting is an element without child elements. Its attribute "type" defines the form of its text (see Type), and
/// protected="1" means that the text is encrypted. Failures are traced, values never.
class ConfigStore {
public:
    ConfigStore(KzCommon::Machine& machine, const ValueProtection& protection) noexcept
        : m_machine(machine), m_protection(protection)
    {
    }

    /// Reads the file.
    [[nodiscard]] bool Open(const std::wstring& tstrPath);

    enum class Found { eValue, eNone, eRefused };

    /// Reads one setting and its type. eNone when the file does not contain it; eRefused when the value does not fit
    /// its type or fails its authentication, so that neither garbage nor an unencrypted protected value is returned. An
    /// `int` or `bool` without a text has no value. An unencrypted secret (IsSecret) is returned protected.
    [[nodiscard]] Found Read(const TagPath& path, Value& value, Type& eType) const;

    /// Writes one setting. Creates a missing element with type `eNewType`, protected if the value is. Writes a
    /// protected value to a protected element unchanged (in the current form), to another element decrypted; encrypts a
    /// clear value for a protected element. Makes the element of a secret protected, and also an eMisspelt one for a
    /// protected value. Keeps an element that already has the value. False, with the setting unchanged, when the value
    /// does not fit the element's type, fails its authentication or cannot be written as XML, and when the path is a
    /// section or passes through a value.
    [[nodiscard]] bool Write(const TagPath& path, const Value& value, Type eNewType);

    /// Replaces the file if a setting has changed since Open.
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
