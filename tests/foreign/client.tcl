# What the Tcl clients share: the registry object, checks, and how values and refusals look.
#
# A structure is a list of names and values, a union a list of discriminator and value, an exception an error whose
# text is a list of its repository id and its members.

package require Tcl 8.6
package require combat

# The registry at an address. The version of the protocol is that of the messages.
proc registry_at {host port {version 1.2}} {
    set registry [corba::string_to_object "corbaloc:iiop:$version@$host:$port/Registry"]
    check "the object is a registry" [$registry _is_a IDL:zelkor/reg/Registry_1_1:1.0] 1
    return $registry
}

set checks 0

# Ends the program when something is not what it has to be.
proc check {what found wanted} {
    incr ::checks
    if {$found ne $wanted} {
        puts stderr "$what: found {$found}, wanted {$wanted}"
        exit 1
    }
}

proc check_that {what condition} {
    check $what [expr {[uplevel 1 [list expr $condition]] ? 1 : 0}] 1
}

# The same for a text that has to match a pattern.
proc check_like {what found pattern} {
    check "$what: {$found} is like {$pattern}" [string match $pattern $found] 1
}

# What a request is refused with: a list of code, path and text.
proc refusal {body} {
    set failed [catch {uplevel 1 $body} error]
    check "{$body} is refused ($error)" $failed 1
    check "what {$body} is refused with" [lindex $error 0] IDL:zelkor/reg/Error:1.0
    set members [lindex $error 1]
    return [list [dict get $members code] [from_wire [dict get $members path]] [from_wire [dict get $members text]]]
}

# Texts are UTF-8; this ORB takes them for ISO 8859-1.
proc from_wire {text} {
    return [encoding convertfrom utf-8 [encoding convertto iso8859-1 $text]]
}

proc to_wire {text} {
    return [encoding convertfrom iso8859-1 [encoding convertto utf-8 $text]]
}

# The names of all children, however many pages they take.
proc children_of {registry path} {
    set names {}
    set wanted [dict get [$registry describe $path] children]
    while {[llength $names] < $wanted} {
        set page [$registry children $path [llength $names]]
        check_that "children of {$path} from [llength $names] on are some" {[llength $page] > 0}
        foreach info $page {
            lappend names [dict get $info name]
        }
    }
    return $names
}

# No value: an octet is a character here.
set none [list 0 \x00]

# Why a value of many could not be had, as an error code; 0 when it is there.
proc code_of {val} {
    return [expr {[lindex $val 0] == 1 ? [dict get [lindex $val 1] code] : 0}]
}

# The whole subtree, however many pages it takes: a list of path, code, value and so on.
proc tree_below {registry path {limit 0}} {
    set found {}
    set after ""
    while 1 {
        set page [$registry subtree $path 4294967295 $limit $after]
        foreach item [dict get $page items] {
            set depth [dict get $item depth]
            set name [dict get $item info name]
            if {$depth == 0} {
                set names {}
                set here $path
            } else {
                set names [concat [lrange $names 0 [expr {$depth - 2}]] [list $name]]
                set here [join [concat [expr {$path eq "" ? {} : [list $path]}] $names] /]
            }
            # Nothing to read is an empty value.
            set val [dict get $item val]
            set code [expr {[lindex $val 0] == 0 ? 3 : [code_of $val]}]
            lappend found $here $code [expr {$code == 0 ? $val : $::none}]
        }
        set after [dict get $page next]
        if {$after eq ""} {
            return $found
        }
    }
}
