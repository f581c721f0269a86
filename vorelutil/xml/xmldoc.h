#pragma once

#include <list>
#include <map>
#include <string>
#include <vorelutil/platform/export.h>

class QString;

/// XML documents in a narrow subset, as the application's own descriptions and settings use it: a tree of
/// elements, read from a file or a string, or built in code, and written back as text.
///
///     XmlDoc doc;
///     doc.readFile("groups.xml");                             // throws XmlError, FileOpenError
///     if (const XmlDocNode* root = doc.getChild())            // null for an empty document
///         for (const XmlDocNode* group = nullptr; (group = root->findNode("Group", group));)
///             std::printf("%d\n", group->findAttrInt("Id", -1));
///
/// What the subset holds and what it rejects stands in docs/formats/xml.md. Bytes are passed through: no
/// character encoding is interpreted, but for the look-ups that take a `QString`, which are UTF-8. Nothing
/// here depends on the locale, and no depth of nesting is too deep. A tree is used by one thread at a time.

/// One element: its name, its text or its children, its attributes, and where it was read. It owns its
/// children.
///
/// The members are public, since readers walk the tree directly. Whoever changes them keeps the list of
/// children free of null pointers and of cycles, and each node in one place: a node is destroyed by the one
/// list that holds it, once.
class VORELUTIL_EXPORT XmlDocNode
{
public:
    /// An element without text, attributes and children. `file` and `line` tell where it comes from.
    /// With a `parent`, the node is appended to its children, and is its property from then on.
    XmlDocNode(const std::string& name, XmlDocNode* parent, const std::string& file, int line);
    /// Destroys the whole subtree, however deep it is. Nothing is allocated for that.
    ~XmlDocNode();
    XmlDocNode(const XmlDocNode&) = delete;
    XmlDocNode& operator=(const XmlDocNode&) = delete;

    /// Destroys every child, with what is below, and empties the list.
    void deleteChildren();
    /// Appends `child`, which must not be null, to the children; it is this node's property from then on.
    /// Kept: nothing prevents the same pointer from being added twice; `removeChild` removes it everywhere,
    /// and must have done so before this node is destroyed.
    void addChild(XmlDocNode* child);
    /// Takes every entry that is equal to `child` out of the list. The child is not destroyed: it is the
    /// caller's property again. A pointer that is not in the list changes nothing.
    void removeChild(XmlDocNode* child);

    /// The first child of this name (byte by byte); with `after`, the first one that stands behind that
    /// child. Null when there is none, or when `after` is no child of this node.
    /// Each call begins at the first child: to visit thousands of children, walk `children`. The node may be
    /// changed through the result.
    XmlDocNode* findNode(const std::string& name, const XmlDocNode* after = nullptr) const;

    /// The value of an attribute, or `dflt` when there is none of that name. A value that is there and empty
    /// gives the empty text.
    std::string findAttr(const std::string& name, const std::string& dflt) const;
    /// The value of an attribute as a number: "0x1F" hexadecimal, "0b101" binary, or decimal with an optional
    /// sign, tried in this order, each after optional white space. `dflt` when the attribute is absent or
    /// empty, or when no number stands at its beginning.
    ///
    /// What follows the number is ignored ("12abc" is 12). Numbers are read as 64-bit ones and cut to 32:
    /// "0xFFFFFFFF" is -1. Kept: prefixes are lower case, "0X1F" is decimal 0, as is "0x" before anything
    /// that is no hexadecimal number. As the C library's "%x" reads it, a second prefix and a sign may follow
    /// "0x".
    int findAttrInt(const std::string& name, int dflt) const;
    /// The value of an attribute as the C library's "%lg" reads it, with a decimal point in every locale.
    /// `dflt` when the attribute is absent or empty, or when no number stands at its beginning.
    double findAttrDbl(const std::string& name, double dflt) const;

    /// The same for toolkit texts, converted as UTF-8 in both directions.
    QString FindAttr(const QString& name, const QString& dflt) const;
    int FindAttrInt(const QString& name, int dflt) const;

    /// Set an attribute; one that is there is replaced. A whole number is written in decimal, a
    /// floating-point one as "%g" has it: 6 significant digits, a decimal point in every locale ("0.5",
    /// "1.23457e+06"). Other types of numbers, and more digits, go as a text of the caller's.
    void addAttr(const std::string& name, const std::string& value);
    void addAttr(const std::string& name, int value);
    void addAttr(const std::string& name, double value);

    /// `s` as it stands in an attribute's value: a double quote, "&", "<" and ">" become "&quot;", "&amp;",
    /// "&lt;" and "&gt;". An apostrophe stays. Kept: a zero byte ends the text; the rest is dropped.
    static std::string translate(const std::string& s);
    /// Level for `write` from which downwards nothing is put on a new line, however deep the tree is.
    static constexpr int unindented = -1000000;
    /// Appends this element and all below it to `out`, as `XmlDoc::write` has them. `indent` is the level; it
    /// rises by one with every depth, except from `unindented` downwards. From level 1 on an element begins
    /// on a new line, behind two blanks a level; from 0 on so does its closing tag, if it has one; below 0
    /// nothing does. The blanks grow with the square of the depth: 20,000 elements in each other take 800 MB.
    /// `out` must not be one of the tree's own texts; after `std::bad_alloc` it holds what it held, and a
    /// beginning of the new.
    ///
    /// Children are written before the text. Kept: the text is written as it is, so one that has "<" in it,
    /// or begins with white space or one of `" / = >`, does not read back; and the closing tag stands on a
    /// line of its own behind a text as well, so that a text that is written indented and read again has a
    /// line feed and blanks at its end, more with every turn.
    void write(std::string& out, int indent) const;

    std::string name;
    std::string text;                              ///< empty for an element with children, when it was read
    std::map<std::string, std::string> attributes; ///< ordered by the bytes of the names
    std::list<XmlDocNode*> children;               ///< in document order; owned
    std::string file; ///< the source that the node was read from, as its reader named it
    /// Kept: not the line of the start tag, but of the character behind the tag or text that follows it; of
    /// an element that closes itself ("<a/>"), of the character behind its tag. A line feed is such a
    /// character, and counts: "<a>\n<b/>\n<c/>\n</a>" gives 3 for "a" and "b", 4 for "c".
    int line;
};

/// An `XmlDocNode` as the readers of descriptions know it.
using DocNode = XmlDocNode;

/// A document: one tree of elements, or none. It owns the tree.
class VORELUTIL_EXPORT XmlDoc
{
public:
    /// An empty document.
    XmlDoc() = default;
    /// Destroys the tree.
    ~XmlDoc();
    XmlDoc(const XmlDoc&) = delete;
    XmlDoc& operator=(const XmlDoc&) = delete;

    /// The root; null when the document is empty. The document's property.
    XmlDocNode* getChild() const { return m_root; }
    /// Destroys the tree and takes over `root`, which may be null, and must not be a child of any node: take
    /// it out with `removeChild` first. The present root is kept as it is.
    void setChild(XmlDocNode* root);

    /// Replaces the tree by what `content` holds; `sourceName` is for messages and for `XmlDocNode::file`. An
    /// input without a start tag at its beginning gives an empty document. What follows the root is not read;
    /// a zero byte ends the input.
    ///
    /// Throws `XmlError` with source name and line for what is not in the subset. If the error comes up to
    /// the end of the first tag, or in what stands before it, the old tree stands; otherwise the document is
    /// empty then.
    void setContent(const std::string& content, const std::string& sourceName);
    /// The same for a file, which is named in messages by its path and is closed in every case. A read that
    /// fails ends the input. Throws `FileOpenError` as well, when the file does not open or is a folder: the
    /// old tree stands. Needs memory for the tree alone, not for the file.
    void readFile(const std::string& path);

    /// The document as text: a declaration (Kept: it says ISO-8859-1, whatever the bytes are), a line feed,
    /// and the root as `XmlDocNode::write` has it, on lines of their own when `indented`, all on one line
    /// otherwise. No line feed follows the root. Attributes stand in the order of their names. Indented, the
    /// text grows with the square of the depth: 20,000 elements in each other take 800 MB. Who reads a file
    /// and writes it back writes it unindented: texts then stay what they were.
    ///
    /// Throws `XmlError` "Empty document", without file and line, when there is no root.
    std::string write(bool indented) const;

private:
    XmlDocNode* m_root = nullptr;
};
