#include "PluginConfigDocument.h"

#include <QStringList>
#include <QTextStream>
#include <QXmlStreamReader>

namespace
{
using Token = QXmlStreamReader::TokenType;

constexpr int MaxDepth = 1000; // taking a document down recurses
constexpr char DocTypeMark[] = "brekka-doctype";

bool isBlank(const QXmlStreamReader &reader)
{
    return reader.isWhitespace() && !reader.isCDATA();
}

/// Builds a document node by node. The document's own reader drops the declarations of
/// namespaces, the document type and blanks between two CDATA sections.
class Builder
{
public:
    void take(const QXmlStreamReader &reader)
    {
        if (reader.isCharacters()) {
            takeText(reader);
            return;
        }
        m_blanks.clear();
        if (reader.isStartElement())
            enter(reader);
        else if (reader.isEndElement())
            m_parent = m_parent.parentNode();
        else if (reader.isComment())
            m_parent.appendChild(m_config.document.createComment(reader.text().toString()));
        else if (reader.isProcessingInstruction())
            m_parent.appendChild(m_config.document.createProcessingInstruction(
                reader.processingInstructionTarget().toString(),
                reader.processingInstructionData().toString()));
        else if (reader.isEntityReference())
            m_parent.appendChild(m_config.document.createEntityReference(reader.name().toString()));
        else if (reader.isDTD())
            takeDocType(reader.text().trimmed().toString());
    }

    PluginConfigDocument result() const { return m_config; }

private:
    void enter(const QXmlStreamReader &reader)
    {
        QDomElement element = m_config.document.createElement(reader.qualifiedName().toString());
        const QXmlStreamAttributes attributes = reader.attributes();
        for (const QXmlStreamAttribute &attribute : attributes)
            element.setAttribute(attribute.qualifiedName().toString(),
                                 attribute.value().toString());
        m_parent = m_parent.appendChild(element);
    }

    /// Blanks are layout, unless text stands on both sides of them.
    void takeText(const QXmlStreamReader &reader)
    {
        const QString text = reader.text().toString();
        QDomNode last = m_parent.lastChild();
        if (isBlank(reader)) {
            m_blanks += text;
            return;
        }
        if (!last.isText())
            m_blanks.clear();
        if (reader.isCDATA()) {
            appendText(m_blanks);
            m_parent.appendChild(m_config.document.createCDATASection(text));
        } else {
            appendText(m_blanks + text);
        }
        m_blanks.clear();
    }

    void appendText(const QString &text)
    {
        QDomNode last = m_parent.lastChild();
        if (last.nodeType() == QDomNode::TextNode)
            last.setNodeValue(last.nodeValue() + text);
        else if (!text.isEmpty())
            m_parent.appendChild(m_config.document.createTextNode(text));
    }

    /// The reader hands out the comments in the declaration as if they stood beside it.
    void takeDocType(const QString &docType)
    {
        QDomNode last = m_parent.lastChild();
        while (last.isComment() &&
               docType.contains(QLatin1String("<!--") + last.nodeValue() + QLatin1String("-->"))) {
            m_parent.removeChild(last);
            last = m_parent.lastChild();
        }
        m_config.docType = docType;
        m_parent.appendChild(m_config.document.createProcessingInstruction(
            QLatin1String(DocTypeMark), QLatin1String("here")));
    }

    PluginConfigDocument m_config{QDomDocument(QString()), {}}; // a null one takes no nodes
    QDomNode m_parent = m_config.document;
    QString m_blanks; ///< not known yet to be layout
};

/// What a file says, token by token, for comparing; layout and the text of "setting" left out.
class Content
{
public:
    void take(const QXmlStreamReader &reader)
    {
        if (reader.isCharacters()) {
            takeText(reader);
            return;
        }
        if (!reader.isEndElement() || !isSetting())
            endText();
        m_text.clear();
        if (reader.isStartElement())
            enter(reader);
        else if (reader.isEndElement())
            leave();
        else if (reader.tokenType() != Token::StartDocument)
            m_tokens += QString::number(reader.tokenType()) +
                        (reader.isDTD() ? reader.text().trimmed() : reader.text()) +
                        reader.processingInstructionTarget() + QLatin1Char(' ') +
                        reader.processingInstructionData() + reader.name();
    }

    QStringList tokens() const { return m_tokens; }

private:
    bool isSetting() const { return m_settingDepth != 0 && m_preserve.size() == m_settingDepth; }

    void enter(const QXmlStreamReader &reader)
    {
        bool preserves = !m_preserve.isEmpty() && m_preserve.constLast();
        QStringList attributes;
        const QXmlStreamAttributes all = reader.attributes();
        for (const QXmlStreamAttribute &attribute : all) {
            attributes += attribute.qualifiedName() + QLatin1Char('=') + attribute.value();
            if (attribute.qualifiedName() == QLatin1String("xml:space"))
                preserves = attribute.value() == QLatin1String("preserve");
        }
        attributes.sort(); // their order says nothing
        m_preserve += preserves;
        m_tokens += QLatin1Char('<') + reader.qualifiedName();
        m_tokens += attributes;
        if (m_preserve.size() == 2 && m_settingDepth == 0 && !m_isSettingSeen &&
            reader.qualifiedName() == QLatin1String("setting")) {
            m_settingDepth = 2;
            m_isSettingSeen = true;
        }
    }

    void leave()
    {
        if (isSetting())
            m_settingDepth = 0;
        m_preserve.removeLast();
        m_tokens += QStringLiteral(">");
    }

    void takeText(const QXmlStreamReader &reader)
    {
        if (isSetting())
            return;
        const bool preserves = !m_preserve.isEmpty() && m_preserve.constLast();
        if (isBlank(reader) && m_text.isEmpty() && !preserves)
            return;
        const QString kind = QLatin1String(reader.isCDATA() ? "cdata " : "text ");
        if (!reader.isCDATA() && !m_text.isEmpty() && m_text.constLast().startsWith(kind))
            m_text.last() += reader.text();
        else
            m_text += kind + reader.text();
    }

    void endText()
    {
        const bool preserves = !m_preserve.isEmpty() && m_preserve.constLast();
        if (!preserves && !m_text.isEmpty() &&
            m_text.constLast().startsWith(QLatin1String("text")) &&
            m_text.constLast().midRef(5).trimmed().isEmpty())
            m_text.removeLast();
        m_tokens += m_text;
    }

    QStringList m_tokens;
    QStringList m_text;       ///< of the run of texts and CDATA sections that is being read
    QVector<bool> m_preserve; ///< for each open element, whether its blanks count
    int m_settingDepth = 0;   ///< while in "setting"
    bool m_isSettingSeen = false;
};

/// The reader takes zero bytes for UTF-16 or UTF-32 even where nothing says so.
bool isGuessed(const QByteArray &xml, const QXmlStreamReader &reader)
{
    const bool hasMark = xml.startsWith("\xff\xfe") || xml.startsWith("\xfe\xff") ||
                         xml.startsWith(QByteArray("\0\0\xfe\xff", 4));
    return xml.contains('\0') && !hasMark && reader.documentEncoding().isEmpty();
}

/// Hands every token to \a taker; false for what is not well-formed or nested too deep.
template <typename Taker>
bool read(const QByteArray &xml, Taker &taker)
{
    QXmlStreamReader reader(xml);
    // Prefixes stay as they are written, and their declarations stay attributes.
    reader.setNamespaceProcessing(false);
    int depth = 0;
    while (!reader.atEnd() && depth <= MaxDepth) {
        reader.readNext();
        depth += int(reader.isStartElement()) - int(reader.isEndElement());
        if (!reader.hasError() && depth <= MaxDepth)
            taker.take(reader);
    }
    return !reader.hasError() && depth <= MaxDepth && !isGuessed(xml, reader);
}
} // namespace

std::optional<PluginConfigDocument> PluginConfigDocument::parse(const QByteArray &xml)
{
    Builder builder;
    if (!read(xml, builder))
        return std::nullopt;
    return builder.result();
}

QDomElement PluginConfigDocument::child(const char *name) const
{
    return document.documentElement().firstChildElement(QLatin1String(name));
}

std::optional<QByteArray> PluginConfigDocument::serialized(const QByteArray &original) const
{
    QString text;
    QTextStream stream(&text);
    stream.setCodec("UTF-8");
    document.save(stream, 4, QDomNode::EncodingFromTextStream);
    const QString mark = QStringLiteral("<?%1 here?>").arg(QLatin1String(DocTypeMark));
    const int at = docType.isEmpty() ? -1 : text.indexOf(mark);
    if (at >= 0)
        text.replace(at, mark.size(), docType);
    const QByteArray xml = text.toUtf8();
    Content before, after;
    if (!read(original, before) || !read(xml, after) || before.tokens() != after.tokens())
        return std::nullopt;
    return xml;
}
