#include "xmldoc.h"

#include <QString>

QString XmlDocNode::FindAttr(const QString& attribute, const QString& dflt) const
{
    return QString::fromStdString(findAttr(attribute.toStdString(), dflt.toStdString()));
}

int XmlDocNode::FindAttrInt(const QString& attribute, int dflt) const
{
    return findAttrInt(attribute.toStdString(), dflt);
}
