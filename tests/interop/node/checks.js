// The checks both Node clients run (see ../README.md); each client program
// supplies how its library makes a call.
'use strict';

const assert = require('assert');

const CALLS = 200;

function nameFor(tag) {
  return tag + ' <b>&amp;</b> "q" \'a\' café 日本';
}

async function report(check, fn) {
  let line;
  try {
    const problem = await fn();
    line = problem ? 'fail ' + problem : 'pass';
  } catch (e) {
    line = 'fail ' + String(e && (e.message || e.faultString) || e).replace(/\n/g, ' ');
  }
  console.log('RESULT ' + check + ' ' + line);
}

function expect(what, got, want) {
  try {
    assert.deepStrictEqual(got, want);
    return null;
  } catch (e) {
    return what + ': got ' + JSON.stringify(got) + ', expected ' + JSON.stringify(want);
  }
}

function ok(reply) {
  if (typeof reply !== 'object' || reply === null || 'error' in reply) {
    throw new Error('unexpected reply ' + JSON.stringify(reply));
  }
  return reply;
}

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

// call(method, param): a promise of the result of a call with one struct
// parameter (none when param is undefined).
async function runChecks(tag, call) {
  const name = nameFor(tag);
  await report('list-methods', async () => {
    const methods = await call('system.listMethods');
    for (const m of ['getVersion', 'submitSubmission', 'system.multicall']) {
      if (!methods.includes(m)) return m + ' missing';
    }
    return expect('number of methods', methods.length, 44);
  });
  await report('method-help', async () => {
    const text = await call('system.methodHelp', 'jobPause');
    return text.includes("'proxy.node.job.pause'") ? null : 'unexpected help ' + text;
  });
  await report('get-version', async () => expect('version', ok(await call('getVersion')).version, '7.0.0.0'));
  await report('submit', async () => {
    const submission = {
      name: name,
      priority: 7,
      sources: [{type: 'file-source', files: ['/media/in/a.mov']}],
      tasks: [{type: 'transfer', destination: '/media/out'}],
      ints: [0, -1, 2147483647, -2147483648],
      yes: true,
      no: false,
      ratio: 2.5,
      small: -0.125,
      when: new Date(Date.UTC(2024, 0, 2, 3, 4, 5)),
      blob: Buffer.from([0, 1, 0xfe, 0xff, ...Buffer.from('binary')]),
      nested: {level: 1, inner: {level: 2, items: [1, 'two', [3.5, {four: false}]]}},
      'empty-string': '',
      'empty-array': [],
      'empty-struct': {},
      'empty-blob': Buffer.alloc(0),
    };
    const reply = ok(await call('submitSubmission', {submission}));
    if (reply['job-ids'].length !== 1) return 'job-ids ' + JSON.stringify(reply['job-ids']);
    const wf = ok(await call('statusWorkflows2', {'workflow-ids': [reply['workflow-id']]})).workflows;
    return expect('workflow name', wf[0].name, name);
  });
  await report('empties', async () => {
    const src = ok(await call('sourceCreateFileList', {name: '', files: ['a', '', 'b']})).source;
    const problem = expect('source', [src.name, src.files], ['', ['a', '', 'b']]);
    if (problem) return problem;
    const task = ok(await call('taskCreateExecute', {command: '/bin/true', arguments: []})).task;
    return expect('task', [task.command, task.arguments], ['/bin/true', []]);
  });
  await report('multicall', async () => {
    const results = await call('system.multicall', [
      {methodName: 'getVersion', params: [{}]},
      {methodName: 'jobPause', params: [{'job-id': 'no-such-job'}]},
      {methodName: 'sourceCreateFileList', params: [{files: ['x']}]},
    ]);
    if (results.length !== 3) return results.length + ' results for 3 calls: ' + JSON.stringify(results);
    if (results[0][0].version !== '7.0.0.0') return 'first result ' + JSON.stringify(results[0]);
    if (!('error' in results[1][0])) return 'second result ' + JSON.stringify(results[1]);
    return expect('third result files', results[2][0].source.files, ['x']);
  });
  await report('job-life', async () => {
    const jobs = async (wf) => {
      const out = {};
      for (const t of ok(await call('statusTasks2', {'workflow-ids': [wf]})).tasks) out[t['job-id']] = t.state;
      return out;
    };
    const waitState = async (wf, job, state) => {
      const deadline = Date.now() + 60000;
      let got;
      while (Date.now() < deadline) {
        got = (await jobs(wf))[job];
        if (got === state) return null;
        await sleep(100);
      }
      return 'job ' + job + ' never reached ' + state + ' (last ' + got + ')';
    };
    const source = ok(await call('sourceCreateFileList', {files: ['/media/in/a.mov']})).source;
    const task = ok(await call('taskCreateTransfer', {destination: '/media/out'})).task;
    const built = ok(await call('submitBuildSubmission', {name: tag + ' life', sources: [source], tasks: [task, task]}));
    const wf = built['workflow-id'];
    const [first, second] = built['job-ids'];
    const problem = expect('paused', ok(await call('jobPause', {'job-id': second})).state, 'paused') ||
        await waitState(wf, first, 'finished') ||
        expect('still paused', (await jobs(wf))[second], 'paused');
    if (problem) return problem;
    if (ok(await call('jobResume', {'job-id': second})).state === 'paused') return 'resumed job still paused';
    ok(await call('jobCancel', {'job-id': second}));
    return waitState(wf, second, 'cancelled');
  });
}

// 200 getVersion calls through call (one client object); prints the time.
async function runCalls(call) {
  const start = process.hrtime.bigint();
  for (let i = 0; i < CALLS; i++) ok(await call('getVersion'));
  console.log('TIME ' + (Number(process.hrtime.bigint() - start) / 1e6 / CALLS).toFixed(3));
}

module.exports = {runChecks, runCalls};
