# decoderctl finds the installed decoder.
export APPLIANCE_ROOT=/var/lib/decoder
