# The gateway called with Tcl's xmlrpc package (see ../README.md for the
# checks and the submission every client sends).
#
# The package writes values as given and reads them as they come: the
# caller escapes &, < and > in strings, decodes the entities of the
# strings it gets, base64-encodes binary data and names structs by the
# Tcl arrays that hold them. Its socket uses the system encoding and its
# Content-length counts characters, so text goes out as UTF-8 bytes with a
# byte-for-byte system encoding.
encoding system iso8859-1
package require xmlrpc

lassign $argv url tag mode
set name "$tag <b>&amp;</b> \"q\" 'a' caf\u00e9 \u65e5\u672c"
set calls 200
# A call that has not answered after this long has failed (an error while
# reading the answer would otherwise leave xmlrpc::call waiting).
set call_limit_ms 20000

proc str {s} {
    return [list string [string map {& &amp; < &lt; > &gt;} [encoding convertto utf-8 $s]]]
}
proc int {i} { return [list int $i] }
proc bool {b} { return [list boolean $b] }
proc double {d} { return [list double $d] }
proc arr {args} { return [list array $args] }
# A struct is a global array named in the value.
proc struct {args} {
    set var ::struct[incr ::structs]
    array set $var $args
    return [list struct $var]
}
proc text {s} {
    return [encoding convertfrom utf-8 [string map {&lt; < &gt; > &quot; \" &apos; ' &amp; &} $s]]
}

# Member of a struct as the package returns it (a list of {key value}).
proc get {st key} {
    foreach pair $st {
        if {[lindex $pair 0] eq $key} { return [lindex $pair 1] }
    }
    error "no member $key in {$st}"
}
proc has {st key} {
    foreach pair $st { if {[lindex $pair 0] eq $key} { return 1 } }
    return 0
}

proc bgerror {msg} { set ::last_error $msg; set ::readdone -1 }

proc call {method args} {
    set ::last_error ""
    set timer [after $::call_limit_ms {set ::readdone -1; set ::last_error "no answer"}]
    set code [catch {xmlrpc::call $::url "" $method $args} result]
    after cancel $timer
    if {$code || $::last_error ne ""} { error "$method failed: $::last_error $result" }
    # The package answers {unread-rest value}.
    return [lindex $result 1]
}
proc ok {reply} {
    if {[has $reply error]} { error "unexpected reply $reply" }
    return $reply
}

proc report {check body} {
    if {[catch {uplevel #0 $body} problem]} {
        puts "RESULT $check fail [string map {\n " "} $problem]"
    } elseif {$problem eq ""} {
        puts "RESULT $check pass"
    } else {
        puts "RESULT $check fail $problem"
    }
    flush stdout
}
proc expect {what got want} {
    if {$got eq $want} { return "" }
    return "$what: got {$got}, expected {$want}"
}

if {$mode eq "calls"} {
    set start [clock microseconds]
    for {set i 0} {$i < $calls} {incr i} { ok [call getVersion] }
    puts [format "TIME %.3f" [expr {([clock microseconds] - $start) / 1000.0 / $calls}]]
    exit 0
}

report list-methods {
    set methods [call system.listMethods]
    set problem ""
    foreach m {getVersion submitSubmission system.multicall} {
        if {[lsearch -exact $methods $m] < 0} { set problem "$m missing" }
    }
    if {$problem eq ""} { set problem [expect "number of methods" [llength $methods] 44] }
    set problem
}
report method-help {
    set help [call system.methodHelp [str jobPause]]
    expr {[string first "'proxy.node.job.pause'" [text $help]] >= 0 ? "" : "unexpected help $help"}
}
report get-version { expect version [get [ok [call getVersion]] version] 7.0.0.0 }
report submit {
    set submission [struct \
        name [str $name] \
        priority [int 7] \
        sources [arr [struct type [str file-source] files [arr [str /media/in/a.mov]]]] \
        tasks [arr [struct type [str transfer] destination [str /media/out]]] \
        ints [arr [int 0] [int -1] [int 2147483647] [int -2147483648]] \
        yes [bool 1] \
        no [bool 0] \
        ratio [double 2.5] \
        small [double -0.125] \
        when [list dateTime.iso8601 20240102T03:04:05] \
        blob [list base64 [binary encode base64 "\x00\x01\xfe\xffbinary"]] \
        nested [struct level [int 1] inner [struct level [int 2] items \
            [arr [int 1] [str two] [arr [double 3.5] [struct four [bool 0]]]]]] \
        empty-string [str ""] \
        empty-array [arr] \
        empty-struct [struct] \
        empty-blob [list base64 ""]]
    set reply [ok [call submitSubmission [struct submission $submission]]]
    set jobs [get $reply job-ids]
    if {[llength $jobs] != 1} {
        set problem "job-ids $jobs"
    } else {
        set wf [ok [call statusWorkflows2 [struct workflow-ids [arr [str [get $reply workflow-id]]]]]]
        set problem [expect "workflow name" [text [get [lindex [get $wf workflows] 0] name]] $name]
    }
    set problem
}
report empties {
    set src [get [ok [call sourceCreateFileList [struct name [str ""] files [arr [str a] [str ""] [str b]]]]] source]
    set problem [expect source [list [get $src name] [get $src files]] {{} {a {} b}}]
    if {$problem eq ""} {
        set task [get [ok [call taskCreateExecute [struct command [str /bin/true] arguments [arr]]]] task]
        set problem [expect task [list [get $task command] [get $task arguments]] {/bin/true {}}]
    }
    set problem
}
report multicall {
    set results [call system.multicall [arr \
        [struct methodName [str getVersion] params [arr [struct]]] \
        [struct methodName [str jobPause] params [arr [struct job-id [str no-such-job]]]] \
        [struct methodName [str sourceCreateFileList] params [arr [struct files [arr [str x]]]]]]]
    if {[llength $results] != 3} {
        set problem "[llength $results] results for 3 calls: $results"
    } elseif {[get [lindex $results 0 0] version] ne "7.0.0.0"} {
        set problem "first result [lindex $results 0]"
    } elseif {![has [lindex $results 1 0] error]} {
        set problem "second result [lindex $results 1]"
    } else {
        set problem [expect "third result files" [get [get [lindex $results 2 0] source] files] x]
    }
    set problem
}

proc jobs {wf} {
    set out {}
    foreach t [get [ok [call statusTasks2 [struct workflow-ids [arr [str $wf]]]]] tasks] {
        dict set out [get $t job-id] [get $t state]
    }
    return $out
}
proc wait_state {wf job state} {
    set deadline [expr {[clock milliseconds] + 60000}]
    set got ""
    while {[clock milliseconds] < $deadline} {
        set got [dict get [jobs $wf] $job]
        if {$got eq $state} { return "" }
        after 100
    }
    return "job $job never reached $state (last $got)"
}
# Hands a struct the gateway returned back to it, member by member as strings.
proc back {st} {
    set members {}
    foreach pair $st {
        lassign $pair key value
        if {$key eq "files"} {
            set value [arr {*}[lmap f $value {str $f}]]
        } else {
            set value [str $value]
        }
        lappend members $key $value
    }
    return [struct {*}$members]
}
report job-life {
    set source [get [ok [call sourceCreateFileList [struct files [arr [str /media/in/a.mov]]]]] source]
    set task [get [ok [call taskCreateTransfer [struct destination [str /media/out]]]] task]
    set built [ok [call submitBuildSubmission [struct name [str "$tag life"] \
        sources [arr [back $source]] tasks [arr [back $task] [back $task]]]]]
    set wf [get $built workflow-id]
    lassign [get $built job-ids] first second
    set problem [expect paused [get [ok [call jobPause [struct job-id [str $second]]]] state] paused]
    if {$problem eq ""} { set problem [wait_state $wf $first finished] }
    if {$problem eq ""} { set problem [expect "still paused" [dict get [jobs $wf] $second] paused] }
    if {$problem eq "" && [get [ok [call jobResume [struct job-id [str $second]]]] state] eq "paused"} {
        set problem "resumed job still paused"
    }
    if {$problem eq ""} {
        ok [call jobCancel [struct job-id [str $second]]]
        set problem [wait_state $wf $second cancelled]
    }
    set problem
}
