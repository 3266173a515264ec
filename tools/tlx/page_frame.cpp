#include "tools/tlx/page_frame.h"

#include <openssl/evp.h>

#include "support/utf.h"
#include "tools/tlx/html_text.h"
#include "tools/tlx/page_style.h"
#include "version.h"

namespace tlx {
namespace {

// As a policy names an element's text: 'sha256-...'.
std::string HashSource(std::string_view text) {
  unsigned char digest[EVP_MAX_MD_SIZE] = {};
  unsigned size = 0;
  unsigned char encoded[2 * EVP_MAX_MD_SIZE] = {};
  // Without a digest the policy forbids the element.
  if (EVP_Digest(text.data(), text.size(), digest, &size, EVP_sha256(), nullptr) == 1) {
    EVP_EncodeBlock(encoded, digest, static_cast<int>(size));
  }
  return std::string("'sha256-") + reinterpret_cast<const char*>(encoded) + "'";
}

std::string HeadOf(const PageHead& head) {
  std::string html =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src ";
  html += HashSource(kPageStyle) + "; script-src " + HashSource(kPageScript);
  html +=
      "; base-uri 'none'; form-action 'none'\">\n<meta name=\"referrer\" content=\"no-referrer\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
  html += Html(head.subject) + " - ";
  html.append(head.kind) += "</title>\n<style>";
  html.append(kPageStyle) += "</style>\n</head>\n";
  return html;
}

std::string BannerOf(const PageHead& head) {
  std::string html = "<header>\n<p class=\"kind\">";
  html.append(head.kind) += "</p>\n<h1>" + Html(head.subject) + "</h1>\n";
  html += head.isGood ? "<p class=\"outcome good\"><span aria-hidden=\"true\">\u2713</span> "
                      : "<p class=\"outcome bad\"><span aria-hidden=\"true\">\u2717</span> ";
  return html + Html(head.outcome) + "</p>\n</header>\n";
}

std::string ContentsOf(const cvn::List<PageSection>& sections) {
  std::string html = "<nav aria-label=\"Contents\">\n<ul>\n";
  for (const PageSection& section : sections) {
    html.append("<li><a href=\"#").append(section.id).append("\">");
    html.append(section.title).append("</a></li>\n");
  }
  return html + "</ul>\n</nav>\n";
}

}  // namespace

std::string MakePage(const PageHead& head, const cvn::List<PageSection>& sections) {
  std::string html = HeadOf(head);
  html += "<body>\n<a class=\"skip\" href=\"#content\">Skip to the content</a>\n";
  html += BannerOf(head) + ContentsOf(sections) + "<main id=\"content\" tabindex=\"-1\">\n";
  for (const PageSection& section : sections) {
    html.append("<section id=\"").append(section.id).append("\" aria-labelledby=\"");
    html.append(section.id).append("-title\">\n<h2 id=\"").append(section.id);
    html.append("-title\">").append(section.title).append("</h2>\n");
    html += section.body + "</section>\n";
  }
  html += "</main>\n<footer>\n<p>Made by tlx " TESSEL_VERSION_TEXT ".</p>\n</footer>\n<script>";
  html.append(kPageScript) += "</script>\n</body>\n</html>\n";
  return html;
}

std::string Code(cvn::StringView text) { return Code(cvn::WideToUtf8(text)); }
std::string Code(std::string_view utf8) { return "<code>" + LineText(utf8) + "</code>"; }

std::string TermRow(std::string_view term, const std::string& html) {
  return std::string("<div><dt>").append(term).append("</dt><dd>") + html + "</dd></div>\n";
}

std::string CountOf(std::size_t count, std::string_view noun) {
  return std::to_string(count).append(" ").append(noun).append(count == 1 ? "" : "s");
}

std::string LeftOut(std::size_t count, std::string_view noun) {
  return count == 0 ? std::string()
                    : "<p class=\"left\">Left out here: " + CountOf(count, noun) + " more.</p>\n";
}

std::string TableStart(std::string_view caption, const cvn::List<std::string_view>& columns) {
  std::string html = "<table>\n<caption>";
  html.append(caption).append("</caption>\n<thead><tr>");
  for (const std::string_view column : columns) {
    html.append("<th scope=\"col\">").append(column).append("</th>");
  }
  return html + "</tr></thead>\n<tbody>\n";
}

std::string LineText(std::string_view utf8) {
  const CutText cut = CutUtf8(utf8, kLongestLine);
  std::string html = Html(cut.shown);
  if (cut.leftOut != 0) {
    html +=
        "<span class=\"left\"> [left out here: " + CountOf(cut.leftOut, "more byte") + "]</span>";
  }
  return html;
}

}  // namespace tlx
