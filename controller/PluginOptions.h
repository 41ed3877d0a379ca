#pragma once

#include <QString>

/// The plugin's options as its configuration file holds them: a 32-bit number in decimal text. Each
/// option stands in two bits, counted here from the most significant one (position 0), and is on
/// only when both are set; the bits between them and the low 24 belong to the plugin.
class PluginOptions
{
public:
    enum Option { HelloMessage, UploadStandings, UploadReplay };

    explicit PluginOptions(const QString &text);

    /// The text was an unsigned number that fits; otherwise the word counts as 0.
    bool isNumber() const { return m_isNumber; }
    /// The text was a number, but one that the format can't hold.
    bool isTooLarge() const { return m_isTooLarge; }
    quint32 value() const { return m_value; }

    /// The word in base 2 without leading zeros, and padded to 32 digits.
    QString binary() const { return QString::number(m_value, 2); }
    QString digits() const { return binary().rightJustified(32, QLatin1Char('0')); }

    bool isOn(Option option) const;
    void set(Option option, bool on);

    /// The three numbers of the version in the low 24 bits, as "1.2.3".
    QString encodedVersion() const;

private:
    quint32 m_value = 0;
    bool m_isNumber = false;
    bool m_isTooLarge = false;
};
