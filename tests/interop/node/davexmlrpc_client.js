// The gateway called with Node's davexmlrpc package (see ../README.md for the
// checks and the submission every client sends). The package has no client
// object: every call names the URL.
'use strict';

const davexmlrpc = require('davexmlrpc');
const {runChecks, runCalls} = require('./checks');

const [url, tag, mode] = process.argv.slice(2);

function call(method, param) {
  return new Promise((resolve, reject) => {
    davexmlrpc.client(url, method, param === undefined ? [] : [param], 'xml', (err, value) => {
      if (err) reject(err);
      else resolve(value);
    });
  });
}

(mode === 'calls' ? runCalls(call) : runChecks(tag, call)).catch((e) => {
  console.error(e);
  process.exit(1);
});
