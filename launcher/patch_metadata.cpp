#include "launcher/patch_metadata.h"

#include <tinyxml.h>

#include "engine/xml_text.h"
#include "trace/trace.h"

namespace tessel {

void ExtractPatchMetaData(PatchMetaData* meta) {
  TiXmlDocument document;
  if (!ParseXmlText(meta->content, &document)) {
    TraceLine(u"[ExtractPatchMetaData] Error parsing xml...");
    return;
  }
  const TiXmlElement* root = document.RootElement();
  if (root == nullptr) {
    TraceLine(u"[ExtractPatchMetaData] Error obtaining root...");
    return;
  }
  const TiXmlElement* header = root->FirstChildElement("header");
  if (header == nullptr) {
    TraceLine(u"[ExtractPatchMetaData] Error - no header found...");
    return;
  }
  const TiXmlElement* property = header->FirstChildElement("property");
  for (; property != nullptr; property = property->NextSiblingElement("property")) {
    const cvn::String name = XmlAttributeText(*property, "name");
    cvn::String value = XmlAttributeText(*property, "value");
    if (name == u"id") {
      meta->id = std::move(value);
    } else if (name == u"patchType") {
      meta->patchType = std::move(value);
    } else if (name == u"tags") {
      meta->tags.push_back(std::move(value));
    }
  }
  if (meta->id.Empty()) {
    TraceLine(u"[ExtractPatchMetaData] Warning - attribute id not found...");
  }
  if (meta->patchType.Empty()) {
    TraceLine(u"[ExtractPatchMetaData] Warning - attribute patchType not found...");
  }
}

}  // namespace tessel
