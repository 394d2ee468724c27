#include "tools/devbackend/Pages.h"

#include <nlohmann/json.hpp>

#include <ctime>

namespace orvistelle::devbackend {
namespace {

std::string SiteRoot(std::string_view lang) { return lang.empty() ? "/site" : "/site/" + std::string(lang); }
std::string DocsRoot(std::string_view lang) { return lang.empty() ? "/docs" : "/docs/" + std::string(lang); }

std::string Layout(std::string_view lang, std::string_view title, std::string_view body) {
  std::string html =
      "<!doctype html>\n<html lang=\"" + std::string(lang.empty() ? "en" : lang) +
      "\"><head><meta charset=\"utf-8\"><title>" + HtmlEscape(title) +
      " · Orvistelle (development)</title><style>"
      "body{font:15px/1.5 sans-serif;max-width:46em;margin:2em auto;padding:0 1em;color:#222}"
      ".dev{background:#fff4d6;border:1px solid #e0c070;padding:.5em 1em}"
      "label{display:block;margin:.6em 0}input{font:inherit;padding:.3em;width:20em}"
      ".error{color:#b00020}table{border-collapse:collapse}td,th{border:1px solid #ccc;padding:.2em .5em;"
      "text-align:left;vertical-align:top;font-size:13px}</style></head><body>";
  html +=
      "<p class=\"dev\">Development site, served by tools/devbackend on this computer. Nothing here is the real "
      "Orvistelle website.";
  if (!lang.empty()) {
    html += " The page was asked for in \"" + HtmlEscape(lang) + "\"; the development site is in English only.";
  }
  html += "</p><h1>" + HtmlEscape(title) + "</h1>";
  html += body;
  html += "<p><a href=\"" + SiteRoot(lang) + "\">Home</a> · <a href=\"" + DocsRoot(lang) +
          "/fcp/install\">Install guide</a> · <a href=\"" + SiteRoot(lang) + "/terms\">Terms</a> · <a href=\"" +
          SiteRoot(lang) + "/privacy\">Privacy</a> · <a href=\"/dev\">What the app sent</a></p></body></html>\n";
  return html;
}

std::string Cell(std::string_view text) { return "<td>" + HtmlEscape(text) + "</td>"; }

std::string Table(const std::vector<std::string>& headings, const std::string& rows) {
  if (rows.empty()) return "<p>None yet.</p>";
  std::string html = "<table><tr>";
  for (const auto& heading : headings) html += "<th>" + heading + "</th>";
  return html + "</tr>" + rows + "</table>";
}

std::string HeartbeatTable(const std::vector<HeartbeatRow>& heartbeats) {
  std::string rows;
  for (const auto& beat : heartbeats) {
    rows += "<tr>" + Cell(IsoTime(beat.receivedAt)) + Cell(beat.remote) + Cell(beat.body) + "</tr>";
  }
  return Table({"Received", "From", "Body"}, rows);
}

std::string FetchTable(const std::vector<FetchRow>& fetches) {
  std::string rows;
  for (const auto& fetch : fetches) {
    rows += "<tr>" + Cell(IsoTime(fetch.at)) + Cell(fetch.path) + Cell(std::to_string(fetch.status)) +
            Cell(fetch.remote) + Cell(fetch.userAgent) + "</tr>";
  }
  return Table({"At", "Path", "Status", "From", "User agent"}, rows);
}

std::string SessionTable(const std::vector<SessionRow>& sessions, const std::string& csrfToken) {
  std::string rows;
  for (const auto& session : sessions) {
    rows += "<tr>" + Cell(session.email) + Cell(session.id) + Cell(IsoTime(session.createdAt)) +
            Cell(session.refreshCount == 0 ? "never" : IsoTime(session.refreshedAt)) +
            Cell(std::to_string(session.refreshCount)) +
            "<td><form method=\"post\" action=\"/dev/revoke\"><input type=\"hidden\" name=\"csrf\" value=\"" +
            HtmlEscape(csrfToken) + "\"><input type=\"hidden\" name=\"email\" value=\"" + HtmlEscape(session.email) +
            "\"><button>Revoke all of this user's sessions</button></form></td></tr>";
  }
  return Table({"User", "Session", "Started", "Last refresh", "Refreshes", ""}, rows);
}

std::string RelayTable(const std::vector<RelayRow>& relays) {
  std::string rows;
  for (const auto& relay : relays) {
    auto payload = nlohmann::json::parse(relay.sessionPayload, nullptr, false);
    std::string email = payload.is_object() && payload["user"].is_object() && payload["user"]["email"].is_string()
                            ? payload["user"]["email"].get<std::string>()
                            : std::string();
    rows += "<tr>" + Cell(relay.id) + Cell(email) + Cell(IsoTime(relay.createdAt)) + "</tr>";
  }
  return Table({"Flow id", "User", "Written"}, rows);
}

}  // namespace

std::string IsoTime(double seconds) {
  std::time_t whole = static_cast<std::time_t>(seconds);
  std::tm utc{};
  gmtime_r(&whole, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

std::string HtmlEscape(std::string_view text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string SiteHomePage(std::string_view lang) {
  return Layout(lang, "Orvistelle",
                "<p>The beauty effect for Final Cut Pro. On the real website this page presents the product; here "
                "it only links to the pages the app opens.</p><p><a href=\"" +
                    SiteRoot(lang) + "/sign-up?from=vask\">Create an account</a></p>");
}

std::string SignUpPage(std::string_view lang) {
  return Layout(lang, "Create an account",
                "<p>The development site needs no sign-up: signing in with an e-mail it has not seen before creates "
                "that development user, with the password you typed.</p><p>Start a sign-in from the app, which opens "
                "the sign-in page with its flow id.</p>");
}

std::string TermsPage(std::string_view lang) {
  return Layout(lang, "Terms of use",
                "<p>These are not the product's terms. The development backend is a tool for building and testing "
                "the app on one computer; it keeps its data in a local SQLite file and promises nothing.</p>");
}

std::string PrivacyPage(std::string_view lang) {
  return Layout(lang, "Privacy",
                "<p>This is not the product's privacy policy. The development backend stores the development users, "
                "their sessions, the heartbeats and the update checks it receives in a SQLite file on this computer, "
                "and sends nothing anywhere.</p>");
}

std::string SignInPage(std::string_view lang, std::string_view flowId, std::string_view email, std::string_view error) {
  std::string body;
  if (flowId.empty()) {
    body +=
        "<p class=\"error\">This page has no flow id, so the app would not receive the session. Start the "
        "sign-in from the app.</p>";
  }
  if (!error.empty()) body += "<p class=\"error\" id=\"error\">" + HtmlEscape(error) + "</p>";
  body +=
      "<p>Any e-mail and password will do: an e-mail seen for the first time becomes a development user with that "
      "password.</p><form method=\"post\" action=\"" +
      SiteRoot(lang) +
      "/sign-in\"><input type=\"hidden\" name=\"from\" value=\"vask\">"
      "<input type=\"hidden\" name=\"flowId\" value=\"" +
      HtmlEscape(flowId) +
      "\"><label>E-mail <input type=\"email\" name=\"email\" required autocomplete=\"username\" value=\"" +
      HtmlEscape(email) +
      "\"></label><label>Password <input type=\"password\" name=\"password\" required "
      "autocomplete=\"current-password\"></label><button type=\"submit\">Sign in</button></form>";
  return Layout(lang, "Sign in", body);
}

std::string SignedInPage(std::string_view lang, std::string_view email) {
  return Layout(lang, "Signed in",
                "<p id=\"signed-in\">Signed in as " + HtmlEscape(email) +
                    ". Go back to the app: it picks the session up within a few seconds. You can close this "
                    "tab.</p>");
}

std::string DocsHomePage(std::string_view lang) {
  return Layout(lang, "Guide", "<p><a href=\"" + DocsRoot(lang) + "/fcp/install\">Installing the effect</a></p>");
}

std::string DocsInstallPage(std::string_view lang) {
  return Layout(lang, "Installing the effect for Final Cut Pro",
                "<p>The real guide walks through installing the app, pressing \"Set up\" and finding the effect in "
                "Final Cut Pro. On this development site it is a placeholder: the app's own window tells what is "
                "missing and puts it in place.</p>");
}

std::string NotFoundPage(std::string_view path) {
  return Layout("", "Not found", "<p>The development site has no page at " + HtmlEscape(path) + ".</p>");
}

std::string DevPage(const DevPageData& data) {
  std::string body = "<p>Refreshes every 5 seconds. Access tokens live " + std::to_string(data.tokenLifetimeSeconds) +
                     " s. The update manifest is read from <code>" + HtmlEscape(data.manifestPath) +
                     "</code> at every request; edit it to offer or force an update. Data lives in <code>" +
                     HtmlEscape(data.dataDir) + "</code>.</p>";
  body += "<p>The manifest's signature (latest.json.sig): " + HtmlEscape(data.signatureState) +
          ". Public key: <code id=\"update-key\">" + HtmlEscape(data.updatePublicKey) +
          "</code>; a development build checks signatures with it when started with ORVISTELLE_DEV_UPDATE_KEY set "
          "to it.</p>";
  body += "<h2>Heartbeats</h2>" + HeartbeatTable(data.heartbeats);
  body += "<h2>Update checks and downloads</h2>" + FetchTable(data.fetches);
  body +=
      "<h2>Sessions</h2><p>A revoke takes effect at the app's next refresh: the access token it holds stays "
      "valid until then, and the refresh that follows fails.</p>" +
      SessionTable(data.sessions, data.csrfToken);
  body += "<h2>Sign-in relay</h2>" + RelayTable(data.relays);
  std::string html = Layout("", "Development backend", body);
  html.insert(html.find("<title>"), "<meta http-equiv=\"refresh\" content=\"5\">");
  return html;
}

}  // namespace orvistelle::devbackend
