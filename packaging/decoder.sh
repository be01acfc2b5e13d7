# The appliance root of the installed decoder, for decoderctl.
export APPLIANCE_ROOT=/var/lib/decoder
