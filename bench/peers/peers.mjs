// The engines for Node. See compare.py for the rules and for the commands on standard input.
//
// usage: node peers.mjs casbin|cedar MODEL RULES DECISIONS
import { readFileSync } from "node:fs";
import { createInterface } from "node:readline";
import cedar from "@cedar-policy/cedar-wasm/nodejs";
import { newEnforcer } from "casbin";

const [engine, model, rulesPath, decisionsPath] = process.argv.slice(2);

async function loadCasbin(rules) {
  const enforcer = await newEnforcer(model);
  await enforcer.addPolicies(rules.methods);
  await enforcer.addGroupingPolicies([...rules.tabs, ...rules.roles]);
  return (user, method) => enforcer.enforceSync(user, method);
}

// Left to the rights that it is paired with.
function grouped(pairs) {
  const groups = new Map();
  for (const [left, right] of pairs) groups.set(left, [...(groups.get(left) ?? []), right]);
  return [...groups];
}

// Methods are actions within tabs, a role is one policy over its tabs. Policies are parsed once; with each question goes
// the slice of entities that it is about, also made once.
function loadCedar(rules) {
  const policies = grouped(rules.tabs).map(([role, tabs]) =>
    `permit(principal in Role::"${role}", action in [${tabs.map((tab) => `Action::"${tab}"`)}], resource);`);
  const parsed = cedar.preparsePolicySet("delegations", { staticPolicies: policies.join("\n") });
  if (parsed.type !== "success") throw new Error(JSON.stringify(parsed));
  const entities = (pairs, type, parentType) => new Map(grouped(pairs).map(([id, parents]) =>
    [id, { uid: { type, id }, attrs: {}, parents: parents.map((parent) => ({ type: parentType, id: parent })) }]));
  const users = entities(rules.roles, "User", "Role");
  const actions = entities(rules.methods.map(([tab, method]) => [method, tab]), "Action", "Action");
  return (user, method) => {
    const answer = cedar.statefulIsAuthorized({
      principal: { type: "User", id: user },
      action: { type: "Action", id: method },
      resource: { type: "Server", id: "mail" },
      context: {},
      preparsedPolicySetId: "delegations",
      entities: [users.get(user), actions.get(method)].filter(Boolean),
    });
    if (answer.type !== "success") throw new Error(JSON.stringify(answer));
    return answer.response.decision === "allow";
  };
}

function decide(allows, decisions) {
  const answers = [];
  for (const [user, method] of decisions) {
    const start = process.hrtime.bigint();
    answers.push([allows(user, method), Number(process.hrtime.bigint() - start) / 1000]);
  }
  return answers;
}

const load = { casbin: loadCasbin, cedar: loadCedar }[engine];
const decisions = JSON.parse(readFileSync(decisionsPath));
let allows;
for await (const command of createInterface({ input: process.stdin })) {
  if (command === "load") allows = await load(JSON.parse(readFileSync(rulesPath)));
  console.log(JSON.stringify(command === "load" || decide(allows, decisions)));
}
