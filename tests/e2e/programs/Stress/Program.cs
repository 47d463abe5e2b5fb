// Shapes of code that trip rewriters, each run on its own and reported by name,
// so that a shape that breaks under instrumentation shows which it is.
using System.Globalization;
using System.Runtime.CompilerServices;

namespace Stress
{
    public class Base
    {
        protected readonly int value;

        public Base(int value) { this.value = value; }

        public virtual int Value() => value;
    }

    public class Derived : Base
    {
        private readonly string label;

        public Derived(int value, string label) : base(value * 2)
        {
            if (label == null)
                throw new ArgumentNullException(nameof(label));
            this.label = label;
        }

        public Derived() : this(1, "default") { }

        public override int Value() => base.Value() + 1;

        public override string ToString() => label + ":" + Value();
    }

    public struct Counter
    {
        private int count;

        public void Add(int amount) { count += amount; }

        public readonly int Get() => count;
    }

    public class Pair<A, B>
    {
        public A First;
        public B Second;

        public Pair(A first, B second) { First = first; Second = second; }

        public Pair<B, A> Swap() => new Pair<B, A>(Second, First);
    }

    public static class Shapes
    {
        public static T Max<T>(T a, T b) where T : IComparable<T> => a.CompareTo(b) >= 0 ? a : b;

        public static int ThrowEnded(int x)
        {
            if (x > 0)
                return x;
            throw new ArgumentException("not positive");
        }

        public static void AlwaysThrows() => throw new NotSupportedException("always");

        public static string Classify(int x)
        {
            if (x < 0)
                return "negative";
            if (x == 0)
                return "zero";
            if (x < 10)
                return "small";
            return "large";
        }

        public static int Switch(int x)
        {
            switch (x)
            {
                case 0: return 10;
                case 1: return 11;
                case 2:
                case 3: return 12;
                case 7: return 17;
                default: return -1;
            }
        }

        public static string SwitchText(string s) => s switch
        {
            "a" => "first",
            "b" => "second",
            _ => "other",
        };

        public static string Nested(int x)
        {
            var trail = new List<string>();
            try
            {
                try
                {
                    trail.Add("try");
                    if (x == 1)
                        throw new InvalidOperationException("one");
                    if (x == 2)
                        throw new ArgumentException("two");
                }
                catch (InvalidOperationException e) when (e.Message == "one")
                {
                    trail.Add("filtered");
                }
                finally
                {
                    trail.Add("finally");
                }
            }
            catch (ArgumentException)
            {
                trail.Add("outer");
            }
            return string.Join(",", trail);
        }

        public static async Task<int> SumAsync(int n)
        {
            int total = 0;
            for (int i = 1; i <= n; i++)
            {
                await Task.Yield();
                total += i;
            }
            return total;
        }

        public static async Task FailAsync()
        {
            await Task.Yield();
            throw new TimeoutException("late");
        }

        public static IEnumerable<int> Evens(int limit)
        {
            for (int i = 0; i < limit; i += 2)
                yield return i;
        }

        public static int Lambdas(int x)
        {
            int captured = x;
            Func<int, int> add = y => y + captured;
            int Local(int z) => z * captured;
            return add(1) + Local(2) + Enumerable.Range(0, 4).Select(i => i * captured).Sum();
        }

        public static ref int Find(int[] numbers, int wanted)
        {
            for (int i = 0; i < numbers.Length; i++)
            {
                if (numbers[i] == wanted)
                    return ref numbers[i];
            }
            return ref numbers[0];
        }

        public static long Factorial(int n) => n <= 1 ? 1 : n * Factorial(n - 1);

        public static int Ackermann(int m, int n)
        {
            if (m == 0)
                return n + 1;
            if (n == 0)
                return Ackermann(m - 1, 1);
            return Ackermann(m - 1, Ackermann(m, n - 1));
        }

        [MethodImpl(MethodImplOptions.AggressiveInlining)]
        public static int Inlined(int x) => x + 1;

        public static unsafe int Pointers(int x)
        {
            int* p = &x;
            *p += 5;
            return *p;
        }
    }

    public static class Program
    {
        private static int failures;

        public static int Main(string[] args)
        {
            CultureInfo.CurrentCulture = CultureInfo.InvariantCulture;
            Run("ctor", () => new Derived(4, "d").ToString() + " " + new Derived().ToString());
            Run("ctor-throws", () => new Derived(1, null).ToString());
            Run("struct", () =>
            {
                var c = new Counter();
                c.Add(3);
                c.Add(4);
                return c.Get().ToString();
            });
            Run("generic-class", () =>
            {
                var p = new Pair<int, string>(1, "one").Swap();
                return p.First + "/" + p.Second;
            });
            Run("throw-ended", () => Shapes.ThrowEnded(5) + " " + Shapes.ThrowEnded(-1));
            Run("always-throws", () =>
            {
                Shapes.AlwaysThrows();
                return "unreachable";
            });
            Run("returns", () => string.Join(",", new[] { -3, 0, 4, 40 }.Select(Shapes.Classify)));
            Run("switch", () => string.Join(",", Enumerable.Range(0, 9).Select(Shapes.Switch)) + " " +
                                Shapes.SwitchText("a") + Shapes.SwitchText("b") + Shapes.SwitchText("z"));
            Run("nested", () => Shapes.Nested(0) + "|" + Shapes.Nested(1) + "|" + Shapes.Nested(2));
            Run("async", () => Shapes.SumAsync(10).GetAwaiter().GetResult().ToString());
            Run("async-throws", () =>
            {
                Shapes.FailAsync().GetAwaiter().GetResult();
                return "unreachable";
            });
            Run("iterator", () => string.Join(",", Shapes.Evens(9)));
            Run("lambdas", () => Shapes.Lambdas(3).ToString());
            Run("recursion", () => Shapes.Factorial(15) + " " + Shapes.Ackermann(2, 3));
            Run("inlined", () => Shapes.Inlined(41).ToString());
            Run("pointers", () => Shapes.Pointers(37).ToString());
            Run("hostile", Hostile.Run);
            Run("lines", Hostile.Lines);
            Run("filter-order", Hostile.FilterOrder);
            Run("tail-calls", Hostile.TailCalls);
            Run("emitted", Hostile.Emitted);
            Run("collectible", Hostile.Collectible);
            // The count read back includes what a rewriter added: only its size is printed.
            Run("wide", () => Wide.Many(3) + " more than 255 locals: " +
                              (typeof(Wide).GetMethod("Many").GetMethodBody().LocalVariables.Count > 255));
            // Last, since a fault here ends the process.
            Run("generic-method", () => Shapes.Max(3, 9) + " " + Shapes.Max("pear", "apple"));
            Run("ref-return", () =>
            {
                var numbers = new[] { 5, 6, 7 };
                Shapes.Find(numbers, 6) = 60;
                return string.Join(",", numbers);
            });
            return failures;
        }

        private static void Run(string shape, Func<string> body)
        {
            try
            {
                Console.WriteLine(shape + ": " + body());
            }
            catch (InvalidProgramException e)
            {
                failures++;
                Console.WriteLine(shape + ": INVALID PROGRAM " + e.Message);
            }
            catch (Exception e)
            {
                Console.WriteLine(shape + ": " + e.GetType().Name + " " + e.Message);
            }
        }
    }
}
