// node sign-in.mjs URL EMAIL PASSWORD
// Opens the sign-in page in Debian's Chromium, headless and kept off every host but loopback, fills in the form,
// submits it and waits for the page that confirms the sign-in. Exits 0 once confirmed, 1 on any failure.
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { chromium } from 'playwright-core';

const [url, email, password] = process.argv.slice(2);
if (!url || !email || !password) {
  console.error('usage: node sign-in.mjs URL EMAIL PASSWORD');
  process.exit(2);
}

const profile = mkdtempSync(join(tmpdir(), 'orvistelle-e2e-chromium-'));
const context = await chromium.launchPersistentContext(profile, {
  executablePath: '/usr/bin/chromium',
  headless: true,
  args: [
    '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
    '--disable-background-networking', '--disable-component-update', '--disable-sync',
    // Any name but loopback fails to resolve, so nothing on the page can reach another host.
    '--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1',
  ],
  timeout: 30000,
});
try {
  const page = context.pages()[0] ?? (await context.newPage());
  page.setDefaultTimeout(20000);
  await page.goto(url);
  await page.fill('input[name=email]', email);
  await page.fill('input[name=password]', password);
  await page.click('button[type=submit]');
  console.log(await page.locator('#signed-in').innerText());
} catch (error) {
  console.error(`sign-in in Chromium failed: ${error.message}`);
  process.exitCode = 1;
} finally {
  await context.close();
  rmSync(profile, { recursive: true, force: true });
}
