#include "xmldoc.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vorelutil/algo/scan.h>
#include <vorelutil/platform/clocale.h>

namespace {

/// The attribute's value, up to its first zero byte; empty when there is none of that name.
const char* valueOf(const XmlDocNode& node, const std::string& name)
{
    const auto found = node.attributes.find(name);
    return found != node.attributes.end() ? found->second.c_str() : "";
}

/// As scanf's " 0x%x" with 64 bits, cut to 32.
bool scanHexadecimal(const char* text, int* value)
{
    text += std::strspn(text, " \t\n\v\f\r");
    if (std::strncmp(text, "0x", 2) != 0) return false;
    const char* const digits = text + 2;
    char* end = nullptr;
    const unsigned long long bits = std::strtoull(digits, &end, 16);
    if (end == digits) return false;
    *value = static_cast<int>(bits);
    return true;
}

/// As scanf's " %d" with 64 bits, cut to 32.
bool scanDecimal(const char* text, int* value)
{
    char* end = nullptr;
    const long long number = std::strtoll(text, &end, 10);
    if (end == text) return false;
    *value = static_cast<int>(number);
    return true;
}

} // namespace

XmlDocNode::XmlDocNode(const std::string& name_, XmlDocNode* parent, const std::string& file_, int line_)
    : name(name_)
    , file(file_)
    , line(line_)
{
    if (parent != nullptr) parent->addChild(this);
}

XmlDocNode::~XmlDocNode()
{
    deleteChildren();
}

void XmlDocNode::deleteChildren()
{
    // A node gives its children to this list before it is destroyed, so that no destructor calls another.
    // From the end to the beginning: the heap then lends memory to the next document in order of addresses.
    std::list<XmlDocNode*> doomed;
    doomed.swap(children);
    while (!doomed.empty()) {
        XmlDocNode* const last = doomed.back();
        if (!last->children.empty()) {
            doomed.splice(doomed.end(), last->children);
            continue;
        }
        doomed.pop_back();
        delete last;
    }
}

void XmlDocNode::addChild(XmlDocNode* child)
{
    children.push_back(child);
}

void XmlDocNode::removeChild(XmlDocNode* child)
{
    children.remove(child);
}

XmlDocNode* XmlDocNode::findNode(const std::string& wanted, const XmlDocNode* after) const
{
    auto from = children.begin();
    if (after != nullptr) {
        from = std::find(from, children.end(), after);
        if (from == children.end()) return nullptr;
        ++from;
    }
    const auto found =
        std::find_if(from, children.end(), [&](const XmlDocNode* child) { return child->name == wanted; });
    return found != children.end() ? *found : nullptr;
}

std::string XmlDocNode::findAttr(const std::string& attribute, const std::string& dflt) const
{
    const auto found = attributes.find(attribute);
    return found != attributes.end() ? found->second : dflt;
}

int XmlDocNode::findAttrInt(const std::string& attribute, int dflt) const
{
    const platform::CLocaleScope scope;
    const char* const digits = valueOf(*this, attribute);
    int value = dflt;
    if (!scanHexadecimal(digits, &value) && !algoScanBinary(digits, &value)) scanDecimal(digits, &value);
    return value;
}

double XmlDocNode::findAttrDbl(const std::string& attribute, double dflt) const
{
    const platform::CLocaleScope scope;
    double value = dflt;
    return std::sscanf(valueOf(*this, attribute), " %lg", &value) == 1 ? value : dflt;
}

void XmlDocNode::addAttr(const std::string& attribute, const std::string& value)
{
    attributes.insert_or_assign(attribute, value);
}

void XmlDocNode::addAttr(const std::string& attribute, int value)
{
    attributes.insert_or_assign(attribute, std::to_string(value));
}

void XmlDocNode::addAttr(const std::string& attribute, double value)
{
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::general, 6).ptr;
    attributes.insert_or_assign(attribute, std::string(digits, end));
}
