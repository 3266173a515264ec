#include "tools/tlx/json_output.h"

#include "platform/streams.h"
#include "support/utf.h"
#include "telemetry/event_envelope.h"

namespace tlx {

Json::Value JsonText(cvn::StringView text) { return cvn::WideToUtf8(text); }

Json::Value JsonTexts(const cvn::List<cvn::String>& texts) {
  Json::Value list(Json::arrayValue);
  for (const cvn::String& text : texts) {
    list.append(JsonText(text));
  }
  return list;
}

void PrintJson(const Json::Value& document) {
  const cvn::String line = cvn::Utf8ToWide(tessel::PrintLine(document));
  platform::streams::WriteLine(platform::streams::Output::Out,
                               line.AsView().substr(0, line.AsView().find(u'\n')));
}

}  // namespace tlx
