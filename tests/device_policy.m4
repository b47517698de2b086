# What device/sepolicy meets of the platform's policy: classes, macros, attributes, types, and the neverallow rules of
# Android 15 that stop what does not belong there. FRAGMENT stands for the folder's *.te.
class binder
class dir
class fd
class file
class process
class service_manager
class tcp_socket
class udp_socket
sid kernel
class binder { call transfer }
class dir { search }
class fd { use }
class file { open read getattr map execute entrypoint }
class process { transition getattr sigchld }
class service_manager { add find }
class tcp_socket { create read write getattr getopt setopt bind connect shutdown }
class udp_socket { create read write getattr getopt setopt bind connect shutdown sendto }

define(`app_domain', `typeattribute $1 appdomain;')
define(`net_domain', `typeattribute $1 netdomain;')
define(`init_daemon_domain', `
allow init $1_exec:file { open read getattr map execute };
allow init $1:process transition;
allow $1 $1_exec:file { entrypoint open read getattr map execute };
type_transition init $1_exec:process $1;')
define(`binder_use', `
allow $1 servicemanager:binder { call transfer };
allow servicemanager $1:binder { call transfer };
allow servicemanager $1:dir search;
allow servicemanager $1:file { open read };
allow servicemanager $1:process getattr;')
define(`binder_call', `
allow $1 $2:binder { call transfer };
allow $2 $1:binder transfer;
allow $1 $2:fd use;')
define(`add_service', `
allow $1 $2:service_manager { add find };
neverallow { domain -$1 } $2:service_manager add;')

attribute domain;
attribute coredomain;
attribute appdomain;
attribute netdomain;
attribute file_type;
attribute exec_type;
attribute vendor_file_type;
attribute service_manager_type;
attribute hal_service_type;
attribute protected_service;
attribute app_api_service;

type kernel, domain, coredomain;
type init, domain, coredomain;
type servicemanager, domain, coredomain;
type priv_app, domain, coredomain, appdomain, netdomain;
type privapp_data_file, file_type;
type vendor_public_lib_file, vendor_file_type, file_type;
type activity_service, app_api_service, service_manager_type;

allow netdomain self:{ tcp_socket udp_socket } { create read write getattr getopt setopt bind connect shutdown };

FRAGMENT

# Besides the public services, an application outside the core finds those alone that are a HAL's and protected.
neverallow { appdomain -coredomain } { service_manager_type -app_api_service -hal_service_type }:service_manager find;
neverallow { appdomain -coredomain } { service_manager_type -app_api_service -protected_service }:service_manager find;
# Vendor and core do not meet over sockets.
neverallow { domain -coredomain } coredomain:{ tcp_socket udp_socket } connect;
# No program of the vendor runs in a domain of the core.
neverallow coredomain vendor_file_type:file entrypoint;

role r;
role r types domain;
user u roles r;
sid kernel u:r:kernel
