// A little work through the framework, then the number of methods that the
// runtime compiled, on standard error: precompiled code that is used is not
// compiled, so the count shows whether precompiled images were allowed.
using System.Globalization;
using System.Runtime;

var words = new List<string> { "gamma", "alpha", "beta" };
words.Sort(StringComparer.Ordinal);
var text = string.Join(",", words.Select(w => w.ToUpperInvariant()));
Console.WriteLine(text + " " + 12.5.ToString(CultureInfo.InvariantCulture) + " " + DateTime.UnixEpoch.Year);
Console.Error.WriteLine("jitted=" + JitInfo.GetCompiledMethodCount());
return 0;
