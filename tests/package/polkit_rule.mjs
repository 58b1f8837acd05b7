// Loads a polkit rules file with a stand-in for polkit's objects and checks what it decides:
// the account quellor may start Quellor_Dregger.service, and nothing else passes.
import { readFileSync } from 'node:fs';

const Result = { YES: 'yes', NO: 'no', NOT_HANDLED: null };
const rules = [];
new Function('polkit', readFileSync(process.argv[2], 'utf8'))({
  Result,
  addRule: (rule) => rules.push(rule),
  log: () => {},
});

function decide(user, id, details) {
  const action = { id, lookup: (key) => details[key] };
  for (const rule of rules) {
    const result = rule(action, { user });
    if (result) return result;
  }
  return null;
}

const manage = 'org.freedesktop.systemd1.manage-units';
const cases = [
  ['quellor', manage, { unit: 'Quellor_Dregger.service', verb: 'start' }, 'yes'],
  ['quellor', manage, { unit: 'Quellor_Dregger.service', verb: 'stop' }, null],
  ['quellor', manage, { unit: 'Quellor_Dregger.service', verb: 'restart' }, null],
  ['quellor', manage, { unit: 'Quellor_Quellor.service', verb: 'start' }, null],
  ['quellor', manage, { unit: 'ssh.service', verb: 'start' }, null],
  ['quellor', manage, { unit: 'Quellor_Dregger.service' }, null],
  ['quellor', 'org.freedesktop.systemd1.manage-unit-files', { unit: 'Quellor_Dregger.service', verb: 'start' }, null],
  ['quellor', 'org.freedesktop.login1.reboot', {}, null],
  ['nobody', manage, { unit: 'Quellor_Dregger.service', verb: 'start' }, null],
];
let failed = 0;
for (const [user, id, details, expected] of cases) {
  const got = decide(user, id, details);
  if (got !== expected) {
    failed++;
    console.error(`${user} ${id} ${JSON.stringify(details)}: got ${got}, expected ${expected}`);
  }
}
console.log(`polkit rule: ${cases.length - failed} passed, ${failed} failed`);
process.exit(failed ? 1 : 0);
