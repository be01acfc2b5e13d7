# Runs at installation: writes the systemd files with the folders of the installation prefix.
#   unit_templates    folder of the templates
#   unit_bin_folder   CMAKE_INSTALL_BINDIR
#   unit_data_folder  CMAKE_INSTALL_DATADIR
get_filename_component(prefix "${CMAKE_INSTALL_PREFIX}" ABSOLUTE)
get_filename_component(bin_folder "${unit_bin_folder}" ABSOLUTE BASE_DIR "${prefix}")
get_filename_component(data_folder "${unit_data_folder}" ABSOLUTE BASE_DIR "${prefix}")

function(install_unit template destination)
    set(target "${prefix}/lib/${destination}")
    message(STATUS "Installing: $ENV{DESTDIR}${target}")
    configure_file("${unit_templates}/${template}" "$ENV{DESTDIR}${target}" @ONLY
                   FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    set(CMAKE_INSTALL_MANIFEST_FILES "${CMAKE_INSTALL_MANIFEST_FILES};${target}" PARENT_SCOPE)
endfunction()

install_unit(skelmor.service.in systemd/system/skelmor.service)
install_unit(decoder-address.service.in systemd/system/decoder-address.service)
install_unit(decoder-mqtt.service.in systemd/system/decoder-mqtt.service)
install_unit(camera-gateway.service.in systemd/system/camera-gateway.service)
install_unit(decoder-panel.service.in systemd/system/decoder-panel.service)
install_unit(decoder-monitor.service.in systemd/user/decoder-monitor.service)
install_unit(decoder-monitor-console.service.in systemd/system/decoder-monitor-console.service)
install_unit(decoder.tmpfiles.in tmpfiles.d/decoder.conf)
