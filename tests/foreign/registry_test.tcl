# A client that nobody of us wrote the ORB of, at the tests' registry server: does everything that the IDL offers.
#
#     tclsh registry_test.tcl TYPES.tcl PORT VERSION PUSH
#
# TYPES.tcl holds the IDL's types as combat_ir.py writes them; VERSION is that of GIOP; PUSH says whether the server
# offers callbacks. Ends with status 1 and says what was wrong at the first difference.

source [file join [file dirname [info script]] client.tcl]
lassign $argv types port version has_push
# A name that leads nowhere: callbacks have to reach us all the same.
corba::init -ORBHostName unreachable.invalid
source $types

set registry [registry_at 127.0.0.1 $port $version]


proc test_hello {registry} {
    set info [$registry hello "a stranger"]
    check "version" [list [dict get $info major] [dict get $info minor]] {1 1}
    check_like "product" [dict get $info product] "* ?*"
    check_that "the start has an id" {[dict get $info boot_id] ne ""}
}

proc test_browse {registry} {
    check "roots" [children_of $registry ""] {values knobs many texts}
    check "knobs" [children_of $registry knobs] {speed steps label stiff}
    check "children of many" [llength [children_of $registry many]] 700
    set info [$registry describe knobs/speed]
    check "a leaf" $info {name speed flags 6 type 6 size 1 children 0}
    check "a container" [dict get [$registry describe knobs] flags] 0
    check_like "no such node" [refusal {$registry describe no/such}] {1 no/such {No node "no" *}}
}

proc test_subtree {registry} {
    set all [tree_below $registry values]
    check "paths below values" [lmap {path code value} $all {set path}] \
        {values values/number values/whole values/text values/nothing values/broken values/slow values/hidden values/long}
    check "codes" [lmap {path code value} $all {set code}] {3 0 0 0 2 8 0 3 7}
    check "a number in the tree" [lindex $all 5] {6 1.5}
    check "in pages of one" [tree_below $registry knobs 1] [tree_below $registry knobs]
    check "in pages of 7" [tree_below $registry many 7] [tree_below $registry many]
    check "a leaf alone" [tree_below $registry knobs/steps] [list knobs/steps 0 [value_of $registry knobs/steps]]
}

proc test_get {registry} {
    set before [expr {[clock microseconds] - 60000000}]
    set reading [$registry get values/number]
    check "a number" [dict get $reading val] {6 1.5}
    check_that "when it was read" {[dict get $reading at] > $before && [dict get $reading at] < $before + 120000000}
    check "a whole number" [value_of $registry values/whole] {2 7}
    check "a text" [from_wire [lindex [value_of $registry values/text] 1]] "gr\u00fcn"
    check_like "a text that is too long" [refusal {$registry get values/long}] "7 values/long {*70000*}"
    check_like "no value" [refusal {$registry get values/nothing}] "2 values/nothing ?*"
    check_like "an error" [refusal {$registry get values/broken}] "8 values/broken {*the bus is stuck*}"
    check_like "hidden" [refusal {$registry get values/hidden}] "3 values/hidden ?*"
    check_like "a container" [refusal {$registry get values}] "3 values ?*"
    check_like "nothing" [refusal {$registry get ""}] "3 {} ?*"
}

proc value_of {registry path} {
    return [dict get [$registry get $path] val]
}

proc test_get_many {registry} {
    set values [$registry get_many {values/number no/such values/broken values/whole}]
    check "codes of many" [lmap value $values {code_of $value}] {0 1 8 0}
    check "values of many" [list [lindex $values 0] [lindex $values 3]] {{6 1.5} {2 7}}
    check_like "a text of many" [dict get [lindex $values 2 1] text] "*the bus is stuck*"
    check "none" [$registry get_many {}] {}
}

proc test_set {registry} {
    $registry set knobs/speed {6 2500.5}
    check "a number was set" [value_of $registry knobs/speed] {6 2500.5}
    $registry set knobs/speed {2 2000}
    check "a whole number for a number" [value_of $registry knobs/speed] {6 2000.0}
    $registry set knobs/speed {8 1234.5}
    check "a text for a number" [value_of $registry knobs/speed] {6 1234.5}
    $registry set knobs/steps {2 12}
    check "a whole number was set" [value_of $registry knobs/steps] {2 12}
    $registry set knobs/label [list 8 [to_wire "\u03a9"]]
    check "a text was set" [from_wire [lindex [value_of $registry knobs/label] 1]] "\u03a9"
    check_like "too much" [refusal {$registry set knobs/speed {6 20000}}] "8 knobs/speed {*Too high value: 20000*}"
    check_like "read only" [refusal {$registry set values/number {6 1}}] "4 values/number ?*"
    check_like "no value" [refusal {$registry set knobs/speed $::none}] "5 knobs/speed ?*"
    check_like "a type from the future" [refusal {$registry set knobs/speed {4711 "bytes"}}] "5 knobs/speed ?*"
    check_like "no such" [refusal {$registry set no/such {6 1}}] "1 no/such ?*"
    check "nothing was changed" [value_of $registry knobs/speed] {6 1234.5}
    set outcomes [$registry set_many {{where knobs/speed val {6 300}} {where no/such val {6 1}}
        {where knobs/steps val {2 4}}}]
    check "codes of setting many" [lmap outcome $outcomes {dict get $outcome code}] {0 1 0}
    check "the first of many" [value_of $registry knobs/speed] {6 300.0}
    check "the last of many" [value_of $registry knobs/steps] {2 4}
}

proc filter {patterns {types 0} {present 0}} {
    return [list patterns $patterns types $types queue_limit 0 lease_s 0 present $present]
}

proc test_poll {registry port} {
    set lease [$registry subscribe [filter knobs/*]]
    set id [dict get $lease id]
    check_that "the lease" {[dict get $lease lease_s] > 0 && [dict get $lease queue_limit] > 0}
    set batch [$registry poll $id 0 100 0]
    check "nothing yet" [list [dict get $batch lost] [dict get $batch more] [dict get $batch events]] {0 0 {}}
    $registry set knobs/speed {6 400}
    $registry set knobs/speed {6 500}
    set batch [$registry poll $id 0 1 0]
    check "there is more" [dict get $batch more] 1
    set event [lindex [dict get $batch events] 0]
    check "an event" [lmap name {seq type path val} {dict get $event $name}] {1 0 knobs/speed {6 400.0}}
    set batch [$registry poll $id 0 100 0]
    check "not received: they come again" [sequences $batch] {1 2}
    check "the start's id" [dict get $batch boot_id] [dict get [$registry hello x] boot_id]
    check "received: they are gone" [sequences [$registry poll $id 2 100 0]] {}
    # A poll that waits, and somebody else who sets: on a connection of its own, since one serves one after another.
    set other [registry_at localhost $port]
    set request [$registry -async poll $id 2 100 20000]
    after 100 [list $other set knobs/speed {6 600}]
    set start [clock milliseconds]
    set batch [corba::request get $request]
    check "the event that was waited for" [sequences $batch] 3
    check_that "it did not wait to the end" {[clock milliseconds] - $start < 15000}
    check_that "renewed" {[$registry renew $id] > 0}
    $registry unsubscribe $id
    check_like "ended" [refusal [list $registry poll $id 3 100 0]] "9 * ?*"
    check_like "never was" [refusal {$registry renew nobody}] "9 * ?*"
}

proc sequences {batch} {
    return [lmap event [dict get $batch events] {dict get $event seq}]
}

proc test_present {registry} {
    set id [dict get [$registry subscribe [filter {knobs/steps knobs/label} 0 1]] id]
    set events [dict get [$registry poll $id 0 100 2000] events]
    check "present values" [lmap event $events {dict get $event path}] {knobs/steps knobs/label}
    check "their type" [lmap event $events {dict get $event type}] {65535 65535}
    $registry unsubscribe $id
    set id [dict get [$registry subscribe [filter knobs/speed 2]] id]
    $registry set knobs/speed {6 700}
    check "a type that was not asked for" [sequences [$registry poll $id 0 100 100]] {}
    $registry unsubscribe $id
}

proc test_view {registry} {
    set view [$registry open_view {values/number no/such values/text values/whole values/nothing}]
    foreach time {first second} {
        set columns [$registry read_view $view]
        check "states, $time" [dict get $columns states] {0 1 5 0 2}
        set numbers [dict get $columns numbers]
        check "numbers, $time" [list [lindex $numbers 0] [lindex $numbers 3] [llength $numbers]] {1.5 7.0 5}
    }
    $registry close_view $view
    check_like "a view that was closed" [refusal [list $registry read_view $view]] "10 * ?*"
}

# Our end of a callback.
itcl::class Listener_impl {
    inherit PortableServer::ServantBase
    public method _Interface {} {
        return IDL:zelkor/reg/Listener:1.0
    }
    public method notify {id batch} {
        lappend ::batches $batch
    }
}

proc test_push {registry has_push} {
    set adapter [corba::resolve_initial_references RootPOA]
    set manager [$adapter the_POAManager]
    $manager activate
    set listener [$adapter id_to_reference [$adapter activate_object [Listener_impl #auto]]]
    if {!$has_push} {
        check_like "push is off" [refusal {$registry subscribe_to [filter knobs/speed] $listener}] "11 * ?*"
        return
    }
    set ::batches {}
    set id [dict get [$registry subscribe_to [filter knobs/speed] $listener] id]
    for {set number 1} {$number <= 20} {incr number} {
        $registry set knobs/speed [list 6 $number]
    }
    set end [expr {[clock milliseconds] + 60000}]
    while {[llength [pushed]] < 20 && [clock milliseconds] < $end} {
        after 20 {set ::tick 1}
        vwait ::tick
    }
    check "what was pushed" [lmap event [pushed] {dict get $event val}] [lmap number [numbers 20] {list 6 $number.0}]
    check "its sequence" [lmap event [pushed] {dict get $event seq}] [numbers 20]
    $registry unsubscribe $id
}

proc pushed {} {
    return [concat {*}[lmap batch $::batches {dict get $batch events}]]
}

proc numbers {count} {
    set all {}
    for {set number 1} {$number <= $count} {incr number} {
        lappend all $number
    }
    return $all
}

test_hello $registry
test_browse $registry
test_subtree $registry
test_get $registry
test_get_many $registry
test_set $registry
test_poll $registry $port
test_present $registry
test_view $registry
test_push $registry $has_push
puts "GIOP $version: $checks checks passed"
exit 0
