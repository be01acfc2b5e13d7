# Tells decoderctl where the installed decoder is.
export APPLIANCE_ROOT=/var/lib/decoder
