#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "i18n/Catalogue.h"
#include "i18n/tests/I18nTestSupport.h"

namespace orvistelle::i18n {
namespace {

const std::vector<std::string_view> kExpectedKeys = {
    "nav.openImage", "nav.replaceImage", "nav.camera", "nav.export", "nav.website", "nav.guide", "nav.langZh",
    "nav.langEn", "nav.switchLang",
    "console.title", "console.live", "console.toggle", "console.reset", "console.resetShort",
    "settings.title", "settings.openOnStartup", "settings.account", "settings.signIn", "settings.signOut",
    "settings.version", "settings.back", "settings.about",
    "auth.notSignedIn", "auth.product", "auth.tagline", "auth.continueBrowser", "auth.noAccount", "auth.signUp",
    "auth.termsPrefix", "auth.terms", "auth.termsAnd", "auth.privacy", "auth.waitingBrowser", "auth.retrySignIn",
    "auth.timeout", "auth.haveAccountSignIn",
    "obs.noFilter", "obs.noFilterHow", "obs.applyGlobal", "obs.selectSource", "obs.allSources", "obs.noSource",
    "obs.unnamed",
    "tab.skin", "tab.reshape", "tab.makeup", "tab.filter", "tab.sticker", "tab.body", "tab.background",
    "reshape.body", "reshape.bodyTorso", "reshape.bodyArm", "reshape.bodyLeg", "reshape.bodySlim",
    "reshape.waistSlim", "reshape.legSlim", "reshape.shoulderSlim", "reshape.armSlim", "reshape.legLong",
    "reshape.bustEnhance", "reshape.legStretch", "reshape.torsoLong",
    "skin.title", "skin.skinOnly", "skin.smoothingStyle", "skin.reset", "skin.smoothing", "skin.whiteningTone",
    "skin.whitening", "skin.rosiness", "skin.sharpening",
    "smoothing.natural", "smoothing.texture", "smoothing.smooth",
    "whitening.coldWhite", "whitening.pinkWhite", "whitening.warmWhite", "whitening.wheat", "whitening.tan",
    "reshape.face", "reshape.brow", "reshape.eye", "reshape.nose", "reshape.mouth", "reshape.faceThin",
    "reshape.faceNarrow", "reshape.faceSmall", "reshape.faceShort", "reshape.faceVShape", "reshape.cheekbone",
    "reshape.jawbone", "reshape.chin", "reshape.forehead", "reshape.browPosition", "reshape.browDistance",
    "reshape.browThickness", "reshape.eyeSize", "reshape.eyeRound", "reshape.eyeDistance", "reshape.eyePosition",
    "reshape.eyeAngle", "reshape.eyeCornerOpen", "reshape.lowerEyelid", "reshape.noseSlim", "reshape.noseLong",
    "reshape.philtrum", "reshape.mouthSize", "reshape.mouthPosition", "reshape.mouthSmile", "reshape.lipThickness",
    "makeup.title", "makeup.fullSet", "makeup.style", "makeup.color", "makeup.intensity", "makeup.lipstick",
    "makeup.blush", "makeup.contour", "makeup.eyeshadow", "makeup.eyeliner", "makeup.eyebrow", "makeup.eyelash",
    "makeup.pupil", "makeup.pupilColor",
    "lipstick.rouge", "lipstick.retroRed", "lipstick.peach", "lipstick.coralOrange", "lipstick.gentlePink",
    "lipstick.vitalityOrange",
    "blush.sunKissed", "blush.igari", "blush.soft", "blush.apple", "blush.classic", "blush.doll", "blush.rose",
    "blushColor.coralPink", "blushColor.dustyRose", "blushColor.vividRed", "blushColor.berry",
    "blushColor.sunsetOrange",
    "contour.natural", "contour.sculpt", "contour.glow", "contour.slim", "contour.nose", "contour.glam",
    "eyeshadow.soft", "eyeshadow.crease", "eyeshadow.smoky", "eyeshadow.halo", "eyeshadow.glow", "eyeshadow.drama",
    "eyeshadow.warm",
    "eyeshadowColor.plum", "eyeshadowColor.brown", "eyeshadowColor.gold", "eyeshadowColor.pink",
    "eyeliner.classic", "eyeliner.flick", "eyeliner.catEye", "eyeliner.natural", "eyeliner.bold", "eyeliner.soft",
    "eyelinerColor.burgundy", "eyelinerColor.plum", "eyelinerColor.chocolate", "eyelinerColor.coffee",
    "eyelinerColor.mauve",
    "eyebrow.natural", "eyebrow.soft", "eyebrow.feathered", "eyebrow.mist", "eyebrow.arched", "eyebrow.powder",
    "eyebrow.wild", "eyebrow.full", "eyebrow.straight",
    "eyebrowColor.darkBrown", "eyebrowColor.black", "eyebrowColor.softBrown",
    "eyelash.classic", "eyelash.manga", "eyelash.winged", "eyelash.wispy", "eyelash.clustered", "eyelash.doll",
    "eyelashColor.black", "eyelashColor.brown", "eyelashColor.softBlack",
    "pupil.hazel", "pupil.ice", "pupil.mocha", "pupil.olive", "pupil.gloss", "pupil.moss", "pupil.sand", "pupil.glow",
    "pupil.slate",
    "filter.title", "filter.none", "filter.intensity",
    "bg.title", "bg.effect", "bg.original", "bg.blur", "bg.preset", "bg.blurAmount", "bg.cutout", "bg.portrait",
    "bg.green", "bg.blue", "bg.red", "bg.similarity", "bg.smoothness", "bg.desaturation",
    "sticker.title", "sticker.none", "sticker.group.face", "sticker.group.screen", "sticker.group.3d",
    "sticker.tag.animated", "sticker.oculos", "sticker.red_glasses", "sticker.black_glass", "sticker.fox",
    "sticker.kiss2", "sticker.mustache", "sticker.fan_club", "sticker.falling_sakura", "sticker.falling_pigs",
    "sticker.butterfly", "sticker.petals",
    "preview.keypoints", "preview.hold", "preview.release", "preview.original", "preview.empty",
    "idle.openImage", "idle.openCamera", "idle.sample", "idle.hint",
    "status.imageLoaded", "status.cameraOn", "status.reset", "status.initFailed", "status.loadFailed",
    "status.cameraFailed", "status.exportEmpty", "status.exportFailed", "status.exported",
    "filter.initial_heart", "filter.first_love", "filter.vivid", "filter.confession", "filter.milk_tea",
    "filter.mousse", "filter.japanese", "filter.dawn", "filter.cookie", "filter.lively", "filter.pure", "filter.fair",
    "filter.snow", "filter.plain", "filter.natural", "filter.rose", "filter.tender", "filter.tender_2",
    "filter.extraordinary",
    "auth.productFcp", "auth.taglineFcp", "auth.signingIn", "auth.signedOut", "auth.signedIn", "auth.sessionExpired",
    "update.softTitle", "update.forceTitle", "update.download", "update.forceDownload", "update.quitHint",
    "auth.sessionSaveFailed", "auth.timeoutRetry",
    "shell.tagline", "shell.labelHost", "shell.labelXpc", "shell.labelTemplate", "shell.stateReady",
    "shell.stateNeeded", "shell.stateMissing", "shell.hintAllOk", "shell.hintSetup", "shell.hintXpc",
    "shell.actionSetup", "shell.actionRepair", "shell.actionWorking", "shell.actionDone",
    "shell.installTemplateMissing", "shell.installTemplateFailed", "shell.registerFailed", "shell.registerPending",
    "shell.openFcp", "shell.docs", "shell.version",
};

struct PrintedText {
  const char* key;
  std::array<const char*, kLanguageCount> texts;
};

// The window, about and account texts, required byte for byte in every language.
const PrintedText kPrintedTexts[] = {
    {"shell.tagline",
     {"Orvistelle Final Cut Plugin", "Orvistelle Final Cut 插件", "Orvistelle Final Cut 外掛",
      "Orvistelle Final Cut プラグイン", "Orvistelle Final Cut 플러그인", "Plugin Orvistelle Final Cut",
      "Plugin Orvistelle Final Cut", "Orvistelle Final Cut Plugin"}},
    {"shell.labelHost",
     {"Plugin host", "插件宿主", "外掛宿主", "プラグインホスト", "플러그인 호스트", "Host do plugin", "Host del plugin", "Plugin-Host"}},
    {"shell.labelXpc",
     {"Effect service", "效果服务", "效果服務", "エフェクトサービス", "효과 서비스", "Serviço de efeito", "Servicio de efecto",
      "Effektdienst"}},
    {"shell.labelTemplate",
     {"Motion template", "Motion 模板", "Motion 模板", "Motion テンプレート", "Motion 템플릿", "Modelo do Motion",
      "Plantilla de Motion", "Motion-Vorlage"}},
    {"shell.stateReady",
     {"Ready", "已就绪", "已就緒", "準備完了", "준비됨", "Pronto", "Listo", "Bereit"}},
    {"shell.stateNeeded",
     {"Needed", "待安装", "待安裝", "必要", "필요", "Pendente", "Pendiente", "Erforderlich"}},
    {"shell.stateMissing",
     {"Missing", "缺失", "缺失", "なし", "없음", "Ausente", "Falta", "Fehlt"}},
    {"shell.hintAllOk",
     {"Quit and reopen Final Cut Pro if the effect is not listed yet.", "若效果列表还没有，请完全退出并重开 Final Cut Pro。",
      "若效果列表還沒有，請完全退出並重開 Final Cut Pro。", "一覧に無い場合は Final Cut Pro を終了して開き直してください。",
      "효과가 없으면 Final Cut Pro를 완전히 종료한 뒤 다시 여세요.", "Se o efeito não aparecer, saia e reabra o Final Cut Pro.",
      "Si no aparece, cierra y vuelve a abrir Final Cut Pro.", "Wenn der Effekt fehlt, Final Cut Pro neu starten."}},
    {"shell.hintSetup",
     {"One tap finishes anything still marked above.", "点一次即可完成上方未就绪的项目。", "點一次即可完成上方未就緒的項目。", "上の未完了項目をワンタップで完了します。",
      "위의 미완료 항목을 한 번에 처리합니다.", "Um toque conclui o que ainda falta acima.", "Un toque completa lo pendiente arriba.",
      "Ein Tipp erledigt die offenen Punkte oben."}},
    {"shell.hintXpc",
     {"Effect service is missing. Re-download the app package.", "效果服务缺失，请重新下载安装包。", "效果服務缺失，請重新下載安裝包。",
      "エフェクトサービスがありません。再ダウンロードしてください。", "효과 서비스가 없습니다. 패키지를 다시 받으세요.",
      "Serviço de efeito ausente. Baixe o pacote de novo.",
      "Falta el servicio de efecto. Vuelve a descargar el paquete.", "Effektdienst fehlt. Paket erneut laden."}},
    {"shell.actionSetup",
     {"Set up for Final Cut", "一键完成设置", "一鍵完成設定", "ワンクリックで設定", "원클릭 설정", "Configurar para Final Cut",
      "Configurar para Final Cut", "Für Final Cut einrichten"}},
    {"shell.actionRepair",
     {"Reinstall setup", "重新完成设置", "重新完成設定", "設定をやり直す", "설정 다시 하기", "Reinstalar configuração",
      "Reinstalar configuración", "Einrichtung erneut"}},
    {"shell.actionWorking",
     {"Setting up…", "正在设置…", "正在設定…", "設定中…", "설정 중…", "Configurando…", "Configurando…", "Wird eingerichtet…"}},
    {"shell.actionDone",
     {"Setup complete. Restart Final Cut Pro to see the effect.", "设置完成。请重启 Final Cut Pro 后查看效果。",
      "設定完成。請重啟 Final Cut Pro 後查看效果。", "設定完了。Final Cut Pro を再起動してください。", "설정 완료. Final Cut Pro를 재시작하세요.",
      "Pronto. Reinicie o Final Cut Pro.", "Listo. Reinicia Final Cut Pro.", "Fertig. Final Cut Pro neu starten."}},
    {"shell.installTemplateMissing",
     {"Template files are missing from this app. Re-download the package.", "本应用内缺少模板文件，请重新下载安装包。",
      "本應用內缺少模板檔，請重新下載安裝包。", "アプリ内にテンプレートがありません。再ダウンロードしてください。", "앱에 템플릿이 없습니다. 패키지를 다시 받으세요.",
      "Modelo ausente neste app. Baixe o pacote de novo.",
      "Falta la plantilla en esta app. Vuelve a descargar el paquete.",
      "Vorlage fehlt in der App. Paket erneut laden."}},
    {"shell.installTemplateFailed",
     {"Could not install template: %@", "无法安装模板：%@", "無法安裝模板：%@", "テンプレートを入れられませんでした：%@", "템플릿을 설치하지 못했습니다: %@",
      "Falha ao instalar o modelo: %@", "No se pudo instalar la plantilla: %@", "Vorlage nicht installierbar: %@"}},
    {"shell.registerFailed",
     {"Registration failed (error %d). Move the app to Applications and try again.", "登记失败（错误码 %d）。请把应用放到「应用程序」后重试。",
      "登記失敗（錯誤碼 %d）。請把應用放到「應用程式」後重試。", "登録に失敗しました（エラー %d）。「アプリケーション」に移して再試行してください。",
      "등록 실패(오류 %d). 앱을 응용 프로그램으로 옮긴 뒤 다시 시도하세요.",
      "Falha no registro (erro %d). Mova o app para Aplicativos e tente de novo.",
      "Registro fallido (error %d). Mueve la app a Aplicaciones e inténtalo de nuevo.",
      "Registrierung fehlgeschlagen (Fehler %d). App nach Programme legen und erneut versuchen."}},
    {"shell.registerPending",
     {"Registration sent. Try again in a moment if status stays unchanged.", "已请求登记。若状态未变，请稍后再试。",
      "已請求登記。若狀態未變，請稍後再試。", "登録を要求しました。状態が変わらなければ少し後に再試行してください。", "등록을 요청했습니다. 상태가 그대로면 잠시 후 다시 시도하세요.",
      "Registro enviado. Tente de novo em instantes se o status não mudar.",
      "Registro enviado. Inténtalo de nuevo si el estado no cambia.",
      "Registrierung gesendet. Bei unverändertem Status kurz warten und erneut versuchen."}},
    {"shell.version",
     {"Version %@", "版本 %@", "版本 %@", "バージョン %@", "버전 %@", "Versão %@", "Versión %@", "Version %@"}},
    {"settings.about",
     {"About", "关于", "關於", "情報", "정보", "Sobre", "Acerca de", "Info"}},
    {"nav.website",
     {"Website", "官网", "官網", "公式サイト", "공식 사이트", "Site", "Sitio web", "Website"}},
    {"nav.guide",
     {"Guide", "使用说明", "使用說明", "使い方", "사용법", "Guia", "Guía", "Anleitung"}},
    {"auth.terms",
     {"Terms", "服务条款", "服務條款", "利用規約", "서비스 약관", "Termos", "Términos", "AGB"}},
    {"auth.privacy",
     {"Privacy Policy", "隐私政策", "隱私政策", "プライバシーポリシー", "개인정보 처리방침", "Privacidade", "Privacidad", "Datenschutz"}},
    {"auth.notSignedIn",
     {"Not signed in", "未登录", "未登入", "未ログイン", "로그인 안 됨", "Sem sessão", "Sin sesión", "Nicht angemeldet"}},
    {"auth.signedIn",
     {"Signed in", "已登录", "已登入", "ログイン済み", "로그인됨", "Com sessão", "Con sesión", "Angemeldet"}},
    {"auth.signedOut",
     {"Signed out", "已退出", "已登出", "ログアウトしました", "로그아웃됨", "Sessão encerrada", "Sesión cerrada", "Abgemeldet"}},
    {"auth.waitingBrowser",
     {"Browser opened. Come back after you sign in.", "已在浏览器打开，登录后会自动回来", "已在瀏覽器開啟，登入後會自動回來", "ブラウザを開きました。ログイン後に戻ります",
      "브라우저가 열렸습니다. 로그인 후 자동으로 돌아옵니다", "Navegador aberto. Volte depois de entrar",
      "Navegador abierto. Vuelve tras iniciar sesión", "Browser geöffnet. Komm nach der Anmeldung zurück"}},
    {"auth.timeoutRetry",
     {"Sign-in timed out. Try again.", "登录超时，请再试一次", "登入超時，請再試一次", "ログインがタイムアウトしました。もう一度お試しください",
      "로그인 시간이 초과되었습니다. 다시 시도하세요", "Tempo de login esgotado. Tente de novo",
      "El inicio de sesión expiró. Inténtalo de nuevo", "Anmeldung abgelaufen. Bitte erneut versuchen"}},
    {"auth.sessionExpired",
     {"Session expired. Please sign in again.", "登录已失效，请重新登录", "登入已失效，請重新登入", "セッションの有効期限が切れました。再度ログインしてください",
      "세션이 만료되었습니다. 다시 로그인하세요", "Sessão expirada. Entre novamente", "Sesión caducada. Inicia sesión de nuevo",
      "Sitzung abgelaufen. Bitte erneut anmelden"}},
    {"auth.sessionSaveFailed",
     {"Could not save sign-in state: %@", "登录状态保存失败：%@", "登入狀態儲存失敗：%@", "ログイン状態を保存できませんでした：%@",
      "로그인 상태를 저장하지 못했습니다: %@", "Não foi possível salvar o login: %@", "No se pudo guardar el inicio de sesión: %@",
      "Anmeldestatus konnte nicht gespeichert werden: %@"}},
};

// English texts fixed for keys of the other front ends.
const std::pair<const char*, const char*> kEnglishTexts[] = {
    {"nav.switchLang", "Switch language"},
    {"nav.langZh", "简体中文"},
    {"nav.langEn", "English"},
    {"console.title", "Retouch Console"},
    {"settings.openOnStartup", "Open panel when OBS starts"},
    {"auth.product", "OBS Beauty"},
    {"auth.productFcp", "FCP Beauty"},
    {"auth.tagline", "Live beauty, makeup, and stickers on your stream sources."},
    {"auth.taglineFcp", "Live beauty, makeup, and filters on your timeline."},
    {"auth.continueBrowser", "Continue in browser"},
    {"auth.noAccount", "Don't have an account?"},
    {"auth.termsPrefix", "By continuing, you agree to our"},
    {"auth.haveAccountSignIn", "Already have an account? Sign in"},
    {"auth.signingIn", "Signing in…"},
    {"auth.timeout", "Sign-in timed out. Try again."},
    {"obs.noFilter", "Add Orvistelle Beauty filter first"},
    {"obs.noFilterHow", "Add a filter to use the controls: Right-click the source -> Filters -> + -> Orvistelle Beauty"},
    {"tab.background", "BG"},
    {"reshape.faceVShape", "V-shape"},
    {"skin.rosiness", "Rosy glow"},
    {"makeup.fullSet", "Full look"},
    {"filter.title", "Film LUTs"},
    {"filter.tender_2", "Tender 2"},
    {"bg.desaturation", "Spill"},
    {"sticker.group.3d", "3D"},
    {"sticker.tag.animated", "Anim"},
    {"preview.hold", "Hold to see original"},
    {"idle.hint", "Choose an image or start the camera"},
    {"status.initFailed", "Engine failed to start"},
    {"update.softTitle", "Update available"},
    {"update.forceTitle", "Update required"},
    {"update.download", "Download"},
    {"update.forceDownload", "Update now"},
    {"update.quitHint", "Quit Final Cut Pro, install the new build, then reopen."},
};

// Columns that legitimately read the same as English (loan words and brand-like names).
const std::map<std::string_view, std::set<int>> kSameAsEnglish = {
    {"nav.website", {7}},       {"eyeliner.natural", {5, 6}},        {"eyebrow.natural", {5, 6}},
    {"filter.natural", {5, 6}}, {"eyelinerColor.chocolate", {5, 6}}, {"sticker.group.3d", {5, 6, 7}},
    {"filter.mousse", {6, 7}},  {"shell.tagline", {7}},              {"shell.version", {7}}};

// The conversions of a text in order: "@" and "d" for placeholders, anything else after a "%" as it stands.
std::string Placeholders(std::string_view text) {
  std::string found;
  for (std::size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 2))
    found += at + 1 < text.size() ? text[at + 1] : '%';
  return found;
}

using CatalogueTest = I18nTest;

TEST(Catalogue, HoldsEveryKeyOnceInOrder) {
  std::vector<std::string_view> keys;
  for (const CatalogueEntry& entry : CatalogueEntries()) keys.push_back(entry.key);
  EXPECT_EQ(keys.size(), 306u);
  EXPECT_EQ(keys, kExpectedKeys);
  EXPECT_EQ(std::set<std::string_view>(keys.begin(), keys.end()).size(), keys.size());
}

TEST(Catalogue, EveryTextIsPresentWithTheKeysPlaceholders) {
  for (const CatalogueEntry& entry : CatalogueEntries()) {
    SCOPED_TRACE(entry.key);
    for (int language = 0; language < kLanguageCount; ++language) {
      const char* text = entry.texts[language];
      ASSERT_NE(text, nullptr) << "language " << language;
      EXPECT_STRNE(text, "") << "language " << language;
      EXPECT_EQ(Placeholders(text), Placeholders(entry.texts[0])) << text;
      EXPECT_EQ(std::string_view(text).find("..."), std::string_view::npos) << "three dots instead of U+2026";
    }
    EXPECT_EQ(Placeholders(entry.texts[0]).find_first_not_of("@d"), std::string::npos) << entry.texts[0];
  }
}

TEST(Catalogue, TranslationsAreNotEnglishCopies) {
  for (const CatalogueEntry& entry : CatalogueEntries()) {
    const std::string_view key = entry.key;
    if (key == "nav.langEn" || key == "nav.langZh") continue;
    const auto allowed = kSameAsEnglish.find(key);
    for (int language = 1; language < kLanguageCount; ++language) {
      const bool copy = std::string_view(entry.texts[language]) == entry.texts[0];
      const bool legitimate = allowed != kSameAsEnglish.end() && allowed->second.count(language);
      EXPECT_EQ(copy, legitimate) << key << " in language " << language;
    }
  }
}

TEST_F(CatalogueTest, LanguageNamesAreWrittenInTheirOwnScript) {
  for (int language = 0; language < kLanguageCount; ++language) {
    UseLanguage(language);
    EXPECT_EQ(FcpT("nav.langEn"), "English");
    EXPECT_EQ(FcpT("nav.langZh"), language == 2 ? "簡體中文" : "简体中文") << "language " << language;
  }
}

TEST_F(CatalogueTest, PrintedTextsAreExactInEveryLanguage) {
  for (int language = 0; language < kLanguageCount; ++language) {
    UseLanguage(language);
    for (const PrintedText& printed : kPrintedTexts)
      EXPECT_EQ(FcpT(printed.key), printed.texts[language]) << printed.key << " in language " << language;
  }
}

TEST_F(CatalogueTest, EnglishTextsAreExact) {
  for (const auto& [key, english] : kEnglishTexts) EXPECT_EQ(FcpT(key), english);
}

TEST_F(CatalogueTest, LookupFallsBackToTheKeyOrNothing) {
  UseLanguage(7);
  EXPECT_EQ(FcpT(nullptr), "");
  EXPECT_EQ(FcpT(""), "");
  for (const char* unknown : {"Shell.stateReady", "shell.stateReady ", "shell", "no.such.key", "shell.stateReady\n"})
    EXPECT_EQ(FcpT(unknown), unknown);
  EXPECT_EQ(FcpT("shell.stateReady"), "Bereit");
}

TEST(Catalogue, EmptyColumnsFallBackToEnglishButEnglishIsTakenAsIs) {
  const CatalogueEntry entry{"k", {"English", "", nullptr, "ja", "", "", "", ""}};
  const CatalogueEntry noEnglish{"k", {nullptr, "zh", "", "", "", "", "", ""}};
  const CatalogueEntry emptyEnglish{"k", {"", "zh", "", "", "", "", "", ""}};
  struct Case {
    const CatalogueEntry& entry;
    std::int32_t language;
    std::string_view text;
  } cases[] = {{entry, 3, "ja"},       {entry, 1, "English"},  {entry, 2, "English"}, {entry, 0, "English"},
               {entry, 8, "English"},  {entry, -1, "English"}, {noEnglish, 1, "zh"},  {noEnglish, 2, "k"},
               {noEnglish, 0, "k"},    {emptyEnglish, 2, ""},  {emptyEnglish, 0, ""}, {emptyEnglish, 1, "zh"}};
  for (const Case& c : cases) EXPECT_EQ(EntryText(c.entry, c.language), c.text) << "language " << c.language;
}

}  // namespace
}  // namespace orvistelle::i18n
