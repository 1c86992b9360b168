# What the platform's macros come to, as far as the service's rules use them.
define(`r_file_perms', `{ getattr open read ioctl lock map }')
define(`rx_file_perms', `{ getattr open read ioctl lock map execute execute_no_trans }')
define(`create_file_perms', `{ getattr open read ioctl lock map append write create rename setattr unlink }')
define(`r_dir_perms', `{ getattr open read search ioctl lock }')
define(`rw_dir_perms', `{ getattr open read search ioctl lock add_name remove_name write }')
define(`create_dir_perms', `{ getattr open read search ioctl lock add_name remove_name write create rename setattr rmdir reparent }')
define(`r_dir_file', `allow $1 $2:dir r_dir_perms; allow $1 $2:{ file lnk_file } r_file_perms;')
define(`init_daemon_domain', `
type_transition init $1_exec:process $1;
allow init $1_exec:file { getattr open read map execute };
allow init $1:process transition;
allow $1 $1_exec:file { getattr open read map execute entrypoint };')
define(`hal_server_domain', `typeattribute $1 halserverdomain; typeattribute $1 $2_server; typeattribute $1 $2;')
define(`get_prop', `allow $1 $2:file { getattr open read map };')
define(`set_prop', `allow $1 $2:property_service set; get_prop($1, $2)')
define(`userdebug_or_eng', `ifelse(target_build_variant, `user', `', `$1')')
