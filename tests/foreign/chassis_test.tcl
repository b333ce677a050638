# A client that nobody of us wrote the ORB of, at the running daemon: looks around, reads, drives the fans, and is told
# of what happens.
#
#     tclsh chassis_test.tcl TYPES.tcl PORT VERSION CHASSISCTL SOCKET
#
# The chassis is that of tests/hostile/server_process.py. CHASSISCTL is the program that changes it at SOCKET. Ends with
# status 1 and says what was wrong at the first difference.

source [file join [file dirname [info script]] client.tcl]
lassign $argv types port version chassisctl socket
corba::init
source $types
set registry [registry_at 127.0.0.1 $port $version]

proc chassis {args} {
    return [exec $::chassisctl --socket $::socket {*}$args]
}

proc value_of {path} {
    return [dict get [$::registry get $path] val]
}

proc test_browse {} {
    check "roots" [children_of $::registry ""] {boards fans}
    check "boards" [children_of $::registry boards] {ICB host}
    check "of a board" [children_of $::registry boards/ICB] {board_info sensors}
    check "sensors" [llength [children_of $::registry boards/ICB/sensors]] 250
    check "of a sensor" [children_of $::registry boards/ICB/sensors/ID_7] \
        {value name hnc hc hnr lnc lc lnr nom type units}
    check "fans" [children_of $::registry fans] \
        {left_front left_middle left_rear right_front right_middle right_rear}
    check "the fans" [dict get [$::registry describe fans] flags] 6
}

proc test_read {} {
    check "a reading" [value_of boards/ICB/sensors/ID_7/value] {6 7.5}
    check "its name" [value_of boards/ICB/sensors/ID_7/name] {8 {Sensor 7}}
    check "a limit" [value_of boards/ICB/sensors/ID_7/hnr] {6 295.0}
    chassis set icb/0 7 61.25
    check "a reading that changed" [value_of boards/ICB/sensors/ID_7/value] {6 61.25}
    set all [tree_below $::registry boards/ICB/sensors]
    check "nodes below the sensors" [expr {[llength $all] / 3}] [expr {1 + 250 * 12}]
    check_that "a path in it" {"boards/ICB/sensors/ID_250/units" in $all}
    check_like "no such" [refusal {$::registry get boards/ICB/sensors/ID_999/value}] "1 * ?*"
    chassis invalid icb/0 7
    check_like "no value" [refusal {$::registry get boards/ICB/sensors/ID_7/value}] "2 * ?*"
    chassis fail icb/0 "bus is stuck"
    check_like "an error" [refusal {$::registry get boards/ICB/sensors/ID_8/value}] "8 * {*bus is stuck*}"
    chassis heal icb/0
}

# Whether the condition becomes true within some seconds.
proc await {condition} {
    set end [expr {[clock seconds] + 90}]
    while {![uplevel 1 [list expr $condition]]} {
        if {[clock seconds] > $end} {
            return 0
        }
        after 50
    }
    return 1
}

proc test_fans {} {
    $::registry set fans {6 4000}
    foreach fan [children_of $::registry fans] {
        check_that "$fan gets up to speed" [await {abs([lindex [value_of fans/$fan] 1] - 4000) < 100}]
    }
    foreach register {0x40 0x48 0x50 0x58 0x60 0x68} {
        check_like "register $register" [chassis fpga read $register] "*483*"
    }
    check_like "a speed that is none" [refusal {$::registry set fans {6 20}}] "8 fans {Too high rpm value: 20}"
    check_like "a limit" [refusal {$::registry set boards/ICB/sensors/ID_7/hnr {6 1}}] "4 * ?*"
    check_like "a text that is none" [refusal {$::registry set fans {8 20}}] "8 fans {Too high rpm value: 20}"
    check_like "still" [chassis fpga read 0x40] "*483*"
    $::registry set fans {8 2000}
    check_like "a text" [chassis fpga read 0x68] "*967*"
    $::registry set fans {2 3000}
    check_like "an integer" [chassis fpga read 0x68] "*645*"
}

# Polls until an event of this type came from the leaf of sensor 9, and checks its value.
proc await_event {id leaf type value} {
    set end [expr {[clock seconds] + 90}]
    while {[clock seconds] < $end} {
        set batch [$::registry poll $id $::received 1000 5000]
        check "nothing was lost" [dict get $batch lost] 0
        foreach event [dict get $batch events] {
            incr ::received
            check "in sequence" [dict get $event seq] $::received
            if {[dict get $event path] eq "boards/ICB/sensors/ID_9/$leaf" && [dict get $event type] == $type} {
                check "the value told with $leaf" [dict get $event val] [list 6 $value]
                return
            }
        }
    }
    check "told of $leaf" 0 1
}

proc test_notifications {} {
    set filter {patterns boards/*/sensors/ID_9 types 0 queue_limit 0 lease_s 0 present 0}
    set id [dict get [$::registry subscribe $filter] id]
    set ::received 0
    chassis set icb/0 9 60.25
    await_event $id value 0 60.25
    chassis set icb/0 9 180
    await_event $id hnc 1 180.0
    $::registry unsubscribe $id
}

proc test_view {} {
    set view [$::registry open_view {boards/ICB/sensors/ID_10/value fans no/such}]
    set columns [$::registry read_view $view]
    check "states" [lindex [dict get $columns states] 0] 0
    check "numbers" [lindex [dict get $columns numbers] 0] 10.5
    check "not there" [lindex [dict get $columns states] 2] 1
    $::registry close_view $view
}

test_browse
test_read
test_fans
test_notifications
test_view
puts "GIOP $version: $checks checks passed"
exit 0
