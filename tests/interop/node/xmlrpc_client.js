// The gateway called with Node's xmlrpc package (see ../README.md for the
// checks and the submission every client sends).
'use strict';

const xmlrpc = require('xmlrpc');
const {runChecks, runCalls} = require('./checks');

const [url, tag, mode] = process.argv.slice(2);
const client = xmlrpc.createClient(url);

function call(method, param) {
  return new Promise((resolve, reject) => {
    client.methodCall(method, param === undefined ? [] : [param], (err, value) => {
      if (err) reject(err);
      else resolve(value);
    });
  });
}

(mode === 'calls' ? runCalls(call) : runChecks(tag, call)).catch((e) => {
  console.error(e);
  process.exit(1);
});
