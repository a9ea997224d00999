// The gateway called with Go's kolo/xmlrpc (see ../README.md for the checks
// and the submission every client sends). The server writes strings as
// untyped <value>text</value>, which kolo can only decode into typed Go
// fields: results are read into the structs below, not into interface{}.
// The client's transport (mending, below) mends two things kolo gets wrong
// on the wire.
package main

import (
	"bytes"
	"encoding/base64"
	"fmt"
	"io"
	"net/http"
	"os"
	"reflect"
	"regexp"
	"strings"
	"time"

	"github.com/kolo/xmlrpc"
)

const calls = 200

type m = map[string]interface{}
type list = []interface{}

type version struct {
	Product string `xmlrpc:"product"`
	Version string `xmlrpc:"version"`
	Error   string `xmlrpc:"error"`
}

type source struct {
	Type  string   `xmlrpc:"type"`
	Name  string   `xmlrpc:"name"`
	Files []string `xmlrpc:"files"`
}

type task struct {
	Type        string `xmlrpc:"type"`
	Destination string `xmlrpc:"destination"`
	Command     string `xmlrpc:"command"`
	// A pointer, so that an empty list (a pointer to no elements) differs
	// from a missing member (nil).
	Arguments *[]string `xmlrpc:"arguments"`
}

// One reply type for every method the checks call; members a reply does not
// have stay empty.
type reply struct {
	Error      string   `xmlrpc:"error"`
	Version    string   `xmlrpc:"version"`
	State      string   `xmlrpc:"state"`
	WorkflowID string   `xmlrpc:"workflow-id"`
	JobIDs     []string `xmlrpc:"job-ids"`
	Source     *source  `xmlrpc:"source"`
	Task       *task    `xmlrpc:"task"`
	Workflows  []struct {
		Name string `xmlrpc:"name"`
	} `xmlrpc:"workflows"`
	Tasks []struct {
		JobID string `xmlrpc:"job-id"`
		State string `xmlrpc:"state"`
	} `xmlrpc:"tasks"`
}

var s *xmlrpc.Client

// mending is the client's http.RoundTripper. It mends two things on the way:
//   - kolo escapes a text with Go's xml.EscapeText, which writes " ' tab, line
//     feed and carriage return as numeric character references (&#34; &#39;
//     &#x9; &#xA; &#xD;); the gateway keeps such references as written. The
//     request gets &quot; &apos; and the characters themselves instead. Only
//     these characters produce such references (a "&" of the text is written
//     &amp;), so the rewrite is exact.
//   - kolo's decoder drops the rest of an array or struct after an untyped
//     empty string, <value></value>, and trims the blanks around an untyped
//     string; the server writes every string untyped. The reply gets each
//     untyped string typed, <value><string>text</string></value>, which
//     kolo reads whole. A string's text holds no "<", so the match is exact.
type mending struct{ next http.RoundTripper }

var requestRefs = strings.NewReplacer("&#34;", "&quot;", "&#39;", "&apos;", "&#x9;", "\t",
	"&#xA;", "\n", "&#xD;", "\r")
var untypedString = regexp.MustCompile(`<value>([^<]*)</value>`)

func (t mending) RoundTrip(req *http.Request) (*http.Response, error) {
	body, err := io.ReadAll(req.Body)
	req.Body.Close()
	if err != nil {
		return nil, err
	}
	body = []byte(requestRefs.Replace(string(body)))
	out := req.Clone(req.Context())
	out.Body = io.NopCloser(bytes.NewReader(body))
	out.ContentLength = int64(len(body))
	resp, err := t.next.RoundTrip(out)
	if err != nil {
		return nil, err
	}
	reply, err := io.ReadAll(resp.Body)
	resp.Body.Close()
	if err != nil {
		return nil, err
	}
	reply = untypedString.ReplaceAll(reply, []byte("<value><string>${1}</string></value>"))
	resp.Body = io.NopCloser(bytes.NewReader(reply))
	resp.ContentLength = int64(len(reply))
	resp.Header.Del("Content-Length")
	return resp, nil
}

func report(check string, fn func() string) {
	problem := fn()
	if problem == "" {
		fmt.Printf("RESULT %s pass\n", check)
	} else {
		fmt.Printf("RESULT %s fail %s\n", check, strings.ReplaceAll(problem, "\n", " "))
	}
}

func expect(what string, got, want interface{}) string {
	if reflect.DeepEqual(got, want) {
		return ""
	}
	return fmt.Sprintf("%s: got %#v, expected %#v", what, got, want)
}

// call makes one call with one struct parameter; an error member or a
// failed call is the returned problem.
func call(method string, param m, out *reply) string {
	var args interface{}
	if param != nil {
		args = param
	}
	if err := s.Call(method, args, out); err != nil {
		return fmt.Sprintf("%s: %v", method, err)
	}
	if out.Error != "" {
		return fmt.Sprintf("%s: error %q", method, out.Error)
	}
	return ""
}

func jobStates(workflow string) (map[string]string, string) {
	var r reply
	if p := call("statusTasks2", m{"workflow-ids": list{workflow}}, &r); p != "" {
		return nil, p
	}
	states := map[string]string{}
	for _, t := range r.Tasks {
		states[t.JobID] = t.State
	}
	return states, ""
}

func waitState(workflow, job, state string) string {
	deadline := time.Now().Add(60 * time.Second)
	last := ""
	for time.Now().Before(deadline) {
		states, p := jobStates(workflow)
		if p != "" {
			return p
		}
		if last = states[job]; last == state {
			return ""
		}
		time.Sleep(100 * time.Millisecond)
	}
	return fmt.Sprintf("job %s never reached %s (last %s)", job, state, last)
}

func main() {
	url, tag, mode := os.Args[1], os.Args[2], os.Args[3]
	name := tag + " <b>&amp;</b> \"q\" 'a' café 日本"
	var err error
	if s, err = xmlrpc.NewClient(url, mending{http.DefaultTransport}); err != nil {
		fmt.Println("cannot make a client:", err)
		os.Exit(1)
	}
	if mode == "calls" {
		start := time.Now()
		for i := 0; i < calls; i++ {
			var v version
			if err := s.Call("getVersion", nil, &v); err != nil || v.Error != "" {
				fmt.Println("getVersion failed:", err, v.Error)
				os.Exit(1)
			}
		}
		fmt.Printf("TIME %.3f\n", float64(time.Since(start).Microseconds())/1000.0/calls)
		return
	}
	report("list-methods", func() string {
		var methods []string
		if err := s.Call("system.listMethods", nil, &methods); err != nil {
			return err.Error()
		}
		for _, want := range []string{"getVersion", "submitSubmission", "system.multicall"} {
			if !strings.Contains(" "+strings.Join(methods, " ")+" ", " "+want+" ") {
				return want + " missing"
			}
		}
		return expect("number of methods", len(methods), 44)
	})
	report("method-help", func() string {
		var text string
		if err := s.Call("system.methodHelp", "jobPause", &text); err != nil {
			return err.Error()
		}
		if !strings.Contains(text, "'proxy.node.job.pause'") {
			return "unexpected help " + text
		}
		return ""
	})
	report("get-version", func() string {
		var v version
		if err := s.Call("getVersion", nil, &v); err != nil {
			return err.Error()
		}
		return expect("version", v.Version, "7.0.0.0")
	})
	report("submit", func() string {
		submission := m{
			"name":     name,
			"priority": 7,
			"sources":  list{m{"type": "file-source", "files": list{"/media/in/a.mov"}}},
			"tasks":    list{m{"type": "transfer", "destination": "/media/out"}},
			"ints":     list{0, -1, 2147483647, -2147483648},
			"yes":      true,
			"no":       false,
			"ratio":    2.5,
			"small":    -0.125,
			"when":     time.Date(2024, 1, 2, 3, 4, 5, 0, time.UTC),
			// kolo sends an xmlrpc.Base64 as it is: the caller encodes.
			"blob":         xmlrpc.Base64(base64.StdEncoding.EncodeToString([]byte("\x00\x01\xfe\xffbinary"))),
			"nested":       m{"level": 1, "inner": m{"level": 2, "items": list{1, "two", list{3.5, m{"four": false}}}}},
			"empty-string": "",
			"empty-array":  list{},
			"empty-struct": m{},
			"empty-blob":   xmlrpc.Base64(""),
		}
		var r reply
		if p := call("submitSubmission", m{"submission": submission}, &r); p != "" {
			return p
		}
		if len(r.JobIDs) != 1 {
			return fmt.Sprintf("job-ids %v", r.JobIDs)
		}
		var w reply
		if p := call("statusWorkflows2", m{"workflow-ids": list{r.WorkflowID}}, &w); p != "" {
			return p
		}
		if len(w.Workflows) != 1 {
			return fmt.Sprintf("workflows %v", w.Workflows)
		}
		return expect("workflow name", w.Workflows[0].Name, name)
	})
	report("empties", func() string {
		// Each case is checked, whatever the other's outcome.
		var problems []string
		var r reply
		if p := call("sourceCreateFileList", m{"name": "", "files": list{"a", "", "b"}}, &r); p != "" {
			problems = append(problems, p)
		} else if r.Source == nil {
			problems = append(problems, "sourceCreateFileList: no source in the reply")
		} else if p := expect("source", *r.Source, source{Type: "file-source", Name: "", Files: []string{"a", "", "b"}}); p != "" {
			problems = append(problems, p)
		}
		var t reply
		if p := call("taskCreateExecute", m{"command": "/bin/true", "arguments": list{}}, &t); p != "" {
			problems = append(problems, p)
		} else if t.Task == nil {
			problems = append(problems, "taskCreateExecute: no task in the reply")
		} else if t.Task.Arguments == nil {
			problems = append(problems, "task: no arguments member")
		} else if p := expect("task", [2]interface{}{t.Task.Command, len(*t.Task.Arguments)}, [2]interface{}{"/bin/true", 0}); p != "" {
			problems = append(problems, p)
		}
		return strings.Join(problems, "; ")
	})
	report("multicall", func() string {
		batch := list{
			m{"methodName": "getVersion", "params": list{m{}}},
			m{"methodName": "jobPause", "params": list{m{"job-id": "no-such-job"}}},
			m{"methodName": "sourceCreateFileList", "params": list{m{"files": list{"x"}}}},
		}
		var results [][]reply
		// A []interface{} argument is the parameter list: the batch is its one parameter.
		if err := s.Call("system.multicall", list{batch}, &results); err != nil {
			return err.Error()
		}
		if len(results) != 3 {
			return fmt.Sprintf("%d results for 3 calls: %v", len(results), results)
		}
		if results[0][0].Version != "7.0.0.0" {
			return fmt.Sprintf("first result %v", results[0])
		}
		if results[1][0].Error == "" {
			return fmt.Sprintf("second result %v", results[1])
		}
		if results[2][0].Source == nil {
			return fmt.Sprintf("third result %v", results[2])
		}
		return expect("third result files", results[2][0].Source.Files, []string{"x"})
	})
	report("job-life", func() string {
		var src, tsk, built, r reply
		if p := call("sourceCreateFileList", m{"files": list{"/media/in/a.mov"}}, &src); p != "" {
			return p
		}
		if p := call("taskCreateTransfer", m{"destination": "/media/out"}, &tsk); p != "" {
			return p
		}
		// The source and task go back as the proxy made them (a typed struct
		// would also send its empty fields).
		sourceBack := m{"type": src.Source.Type, "files": src.Source.Files}
		taskBack := m{"type": tsk.Task.Type, "destination": tsk.Task.Destination}
		if p := call("submitBuildSubmission", m{"name": tag + " life", "sources": list{sourceBack},
			"tasks": list{taskBack, taskBack}}, &built); p != "" {
			return p
		}
		wf, first, second := built.WorkflowID, built.JobIDs[0], built.JobIDs[1]
		if p := call("jobPause", m{"job-id": second}, &r); p != "" || r.State != "paused" {
			return p + " paused: " + r.State
		}
		if p := waitState(wf, first, "finished"); p != "" {
			return p
		}
		states, p := jobStates(wf)
		if p != "" || states[second] != "paused" {
			return p + " still paused: " + states[second]
		}
		var resumed reply
		if p := call("jobResume", m{"job-id": second}, &resumed); p != "" || resumed.State == "paused" {
			return p + " resumed: " + resumed.State
		}
		var cancelled reply
		if p := call("jobCancel", m{"job-id": second}, &cancelled); p != "" {
			return p
		}
		return waitState(wf, second, "cancelled")
	})
}
